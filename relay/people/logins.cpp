// Keeps the log-ins and ends them in time.
#include "relay/people/logins.h"

#include <algorithm>
#include <utility>

namespace vlk::relay {

void Logins::replace(std::vector<LoginRow> rows) {
  thread_.check();
  std::map<Bytes, Login> before = std::exchange(logins_, {});
  for (LoginRow& row : rows) {
    const Bytes hash = row.token_hash;
    Login login;
    if (const auto found = before.find(hash); found != before.end()) {
      login = found->second;
      row.last_used = std::max(row.last_used, login.row.last_used);
      before.erase(found);
    }
    login.row = std::move(row);
    login.stored_use = login.row.last_used;
    logins_[hash] = std::move(login);
  }
  for (const auto& entry : before) {
    if (ended_) ended_(entry.first, "the log-in ended");
  }
}

void Logins::add(LoginRow row) {
  thread_.check();
  Login login;
  login.stored_use = row.last_used;
  login.row = std::move(row);
  const Bytes hash = login.row.token_hash;
  logins_[hash] = std::move(login);
}

void Logins::end(const Bytes& token_hash, const std::string& reason) {
  thread_.check();
  // The argument may belong to the entry.
  const Bytes hash = token_hash;  // NOLINT(performance-unnecessary-copy-initialization)
  if (logins_.erase(hash) > 0 && ended_) ended_(hash, reason);
}

void Logins::end_all_of(PersonId person, const Bytes& keep, const std::string& reason) {
  std::vector<Bytes> hashes;
  for (const auto& [hash, login] : logins_) {
    if (login.row.person == person && hash != keep) hashes.push_back(hash);
  }
  for (const Bytes& hash : hashes)
    end(hash, reason);
}

const Login* Logins::find(const Bytes& token_hash, std::int64_t now) const {
  const auto found = logins_.find(token_hash);
  return found == logins_.end() || now >= ends_at(found->second) ? nullptr : &found->second;
}

const Login* Logins::find_id(std::int64_t id) const {
  const auto found =
      std::ranges::find_if(logins_, [&](const auto& entry) { return entry.second.row.id == id; });
  return found == logins_.end() ? nullptr : &found->second;
}

std::vector<const Login*> Logins::all() const {
  std::vector<const Login*> result;
  for (const auto& entry : logins_)
    result.push_back(&entry.second);
  return result;
}

std::size_t Logins::count_of(PersonId person) const {
  return static_cast<std::size_t>(
      std::ranges::count_if(logins_, [&](const auto& entry) { return entry.second.row.person == person; }));
}

bool Logins::has_address(PersonId person, const std::string& address) const {
  return std::ranges::any_of(logins_, [&](const auto& entry) {
    const LoginRow& row = entry.second.row;
    return row.person == person && row.stage == LoginStage::Full && row.address == address;
  });
}

void Logins::use(const Bytes& token_hash, std::int64_t now) {
  const auto found = logins_.find(token_hash);
  if (found == logins_.end() || now < found->second.row.last_used) return;
  found->second.row.last_used = now;
  // A new warning is due before the new end.
  if (ends_at(found->second) - kLoginWarning > now) found->second.warned_at = 0;
}

void Logins::update(LoginRow row) {
  const auto found = logins_.find(row.token_hash);
  if (found == logins_.end()) return;
  found->second.stored_use = row.last_used;
  found->second.row = std::move(row);
}

void Logins::step_up(const Bytes& token_hash, std::int64_t now, std::int64_t expires_at) {
  const auto found = logins_.find(token_hash);
  if (found == logins_.end()) return;
  found->second.step_up_until = now + kStepUpSeconds;
  found->second.row.expires_at = std::max(found->second.row.expires_at, expires_at);
  found->second.warned_at = 0;
  use(token_hash, now);
}

bool Logins::stepped_up(const Bytes& token_hash, std::int64_t now) const {
  const Login* login = find(token_hash, now);
  return login && now < login->step_up_until;
}

std::int64_t Logins::idle_at(const Login& login) {
  return login.row.idle_limit > 0 ? login.row.last_used + login.row.idle_limit : 0;
}

std::int64_t Logins::ends_at(const Login& login) {
  std::int64_t end = login.row.expires_at;
  if (const std::int64_t idle = idle_at(login); idle > 0) end = std::min(end, idle);
  return login.warned_at > 0 ? std::max(end, login.warned_at + kLoginWarning) : end;
}

void Logins::tick(std::int64_t now) {
  thread_.check();
  std::vector<Bytes> over;
  for (auto& [hash, login] : logins_) {
    if (login.warned_at == 0 && now >= ends_at(login) - kLoginWarning && warn_ &&
        warn_(hash, std::max(kLoginWarning, ends_at(login) - now)))
      login.warned_at = now;
    if (now >= ends_at(login)) over.push_back(hash);
  }
  for (const Bytes& hash : over) {
    const LoginRow row = logins_[hash].row;
    if (over_) over_(row, now < row.expires_at);
    end(hash, "the log-in ended");
  }
}

std::map<std::int64_t, std::int64_t> Logins::take_used() {
  std::map<std::int64_t, std::int64_t> used;
  for (auto& entry : logins_) {
    Login& login = entry.second;
    if (login.row.last_used == login.stored_use) continue;
    login.stored_use = login.row.last_used;
    used[login.row.id] = login.row.last_used;
  }
  return used;
}

}  // namespace vlk::relay
