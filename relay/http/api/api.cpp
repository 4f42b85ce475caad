// Reads request bodies, and checks passwords and codes.
#include "relay/http/api/api.h"

#include <algorithm>
#include <charconv>

#include "relay/base/secrets.h"
#include "relay/people/totp.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr int kRetryBusy = 1;  // seconds
constexpr int kRetryCode = 5;

[[noreturn]] void invalid(const char* key) {
  throw ApiError(HttpStatus::bad_request, std::string("The value of \"") + key + "\" is missing or invalid.");
}

PasswordWork::Asker asker_of(Api& api, const Call& call, const std::string& name) {
  const Person* person = api.parts.people.person_named(name);
  const bool logged_in = !call.caller.name.empty() && call.caller.stage == LoginStage::Full;
  return {name, call.source,
          logged_in || api.attempts.known(name, call.source) ||
              (person && api.parts.logins.has_address(person->id, call.source)),
          api.attempts.slowed(name), api.attempts.failures_of(call.source)};
}

asio::awaitable<void> in_turn(Api& api, PasswordWork::Asker asker, std::function<void()> work) {
  const bool done = co_await api.passwords.run(std::move(asker), std::move(work));
  if (!done) {
    throw ApiError(HttpStatus::service_unavailable,
                   "Too many people log in at this moment. Try again in a second.", "busy", kRetryBusy);
  }
}

// Records that with this failure the sender is refused for a while.
void note_lock_out(Api& api, const Call& call, const std::string& name, const char* step) {
  api.parts.audit.write(trail_entry<TrailKind::LoginLockedOut>({.actor = name, .address = call.peer}, step));
}

// Marks the code as used. False if it is neither the TOTP code of a later step nor an unused backup code.
bool use_code(Database& database, PersonId id, const std::string& code, std::int64_t now) {
  const std::vector<Person> people = load_people(database);
  const auto person = std::ranges::find(people, id, &Person::id);
  if (person == people.end() || person->totp_secret.empty()) return false;
  if (const auto step = accepted_totp_step(person->totp_secret, code, now, person->totp_last_step)) {
    Person changed = *person;
    changed.totp_last_step = *step;
    return update_person(database, changed);
  }
  return use_backup_code(database, id, backup_code_hash(id, code), now);
}

}  // namespace

std::string text_in(const Json& body, const char* key) {
  if (!body.is_object()) return {};
  const auto found = body.find(key);
  return found != body.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::vector<std::int64_t> ids_in(const Json& body, const char* key) {
  std::vector<std::int64_t> ids;
  if (!body.is_object() || !body.contains(key)) return ids;
  if (!body[key].is_array()) invalid(key);
  for (const Json& id : body[key]) {
    if (!id.is_number_integer()) invalid(key);
    ids.push_back(id.get<std::int64_t>());
  }
  std::ranges::sort(ids);
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

bool flag_in(const Json& body, const char* key, bool otherwise) {
  if (!body.is_object() || !body.contains(key)) return otherwise;
  if (!body[key].is_boolean()) invalid(key);
  return body[key].get<bool>();
}

std::int64_t number_in(const Json& body, const char* key, std::int64_t least, std::int64_t most) {
  const auto found = body.is_object() ? body.find(key) : body.end();
  if (!body.is_object() || found == body.end() || !found->is_number_integer()) invalid(key);
  const auto number = found->get<std::int64_t>();
  if (number < least || number > most) invalid(key);
  return number;
}

std::string name_in(const Json& body) {
  std::string name = text_in(body, "name");
  if (!valid_person_name(name)) {
    throw ApiError(HttpStatus::bad_request,
                   "A name has 1 to 64 bytes, without quotes, backslashes and control characters, and "
                   "begins with neither a space nor a parenthesis.",
                   "name");
  }
  return name;
}

std::int64_t id_of(const Call& call) {
  std::int64_t id = 0;
  const char* end = call.key.data() + call.key.size();
  const auto [stop, error] = std::from_chars(call.key.data(), end, id);
  if (error != std::errc() || stop != end || id <= 0) not_found();
  return id;
}

void not_found() {
  throw ApiError(HttpStatus::not_found, "There is no such entry; it may have been removed.");
}

void require_administrator(const People::Contents& contents) {
  const auto administers = [](const Person& person) {
    return person.role == Role::Administrator && !person.disabled;
  };
  if (std::ranges::none_of(contents.people, administers)) {
    throw ApiError(HttpStatus::conflict, "At least one administrator must stay.", "last-administrator");
  }
}

asio::awaitable<std::string> hashed(Api& api, const Call& call, std::string password) {
  const auto result = std::make_shared<std::string>();
  const std::function<void()> work = [result, password] { *result = hash_password(password); };
  PasswordWork::Asker asker = asker_of(api, call, call.caller.name);
  co_await in_turn(api, std::move(asker), work);
  co_return *result;
}

asio::awaitable<void> check_password(Api& api, const Call& call, const std::string& name, std::string hash,
                                     std::string password) {
  if (api.attempts.refused(name, call.source)) {
    ++api.parts.counters.refused_log_ins;
    api.log.write(call.peer, "", "log-in refused for \"" + name + "\": too many failures");
    throw ApiError(HttpStatus::too_many_requests, "Too many failures. Wait ten minutes and try again.",
                   "too-many");
  }
  const PasswordWork::Asker asker = asker_of(api, call, name);
  const Attempts::Reached reached = api.attempts.add(name, call.source);
  if (reached.slowed) {
    api.parts.audit.write(
        trail_entry<TrailKind::LoginSlowed>({.actor = name, .address = call.peer}, "password"));
  }
  const auto right = std::make_shared<bool>(false);
  const std::function<void()> work = [right, hash, password] { *right = verify_password(hash, password); };
  try {
    co_await in_turn(api, asker, work);
  } catch (const ApiError&) {
    api.attempts.withdraw(name, call.source);
    throw;
  }
  ++(*right ? api.parts.counters.right_log_ins : api.parts.counters.wrong_log_ins);
  if (!*right) {
    if (reached.locked_out) note_lock_out(api, call, name, "password");
    throw ApiError(HttpStatus::unauthorized, "The name or the password is wrong.", "wrong");
  }
  api.attempts.succeeded(name, call.source);
}

asio::awaitable<void> check_code(Api& api, const Call& call, PersonId person, std::string code) {
  const std::string name = call.caller.name;
  if (api.attempts.refused(name, call.source) || api.attempts.code_must_wait(name)) {
    ++api.parts.counters.refused_log_ins;
    throw ApiError(HttpStatus::too_many_requests, "Too many wrong codes. Wait and try again.", "too-many",
                   kRetryCode);
  }
  const Attempts::Reached reached = api.attempts.add(name, call.source);
  const std::int64_t now = wall_seconds();
  const std::size_t codes_before = api.parts.people.backup_codes_left(person);
  const auto use = [person, code, now](Store& store) {
    const bool used = use_code(store.database(), person, code, now);
    return std::pair(used, People::load(store.database()));
  };
  auto [right, contents] = co_await api.parts.database.run(use);
  api.parts.people.replace(std::move(contents));
  ++(right ? api.parts.counters.right_log_ins : api.parts.counters.wrong_log_ins);
  if (!right) {
    api.attempts.add_wrong_code(name);
    if (reached.locked_out) note_lock_out(api, call, name, "code");
    throw ApiError(HttpStatus::unauthorized, "The code is wrong or was used before.", "wrong");
  }
  api.attempts.succeeded(name, call.source);
  const std::size_t left = api.parts.people.backup_codes_left(person);
  if (left < codes_before)
    api.parts.audit.write(trail_entry<TrailKind::BackupCodeUsed>(call.subject(), left));
}

}  // namespace vlk::relay
