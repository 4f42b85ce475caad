// Log-in in stages, log-out, passwords and step-up.
#include "relay/base/secrets.h"
#include "relay/http/api/handlers.h"
#include "relay/storage/cluster/relay_store.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::int64_t kUnfinished = 600;  // seconds that a log-in lasts which is not full
constexpr std::size_t kLongestName = 200;
// Under this name, which no person can have, wrong tickets are counted.
constexpr char kTicketAttempts[] = "\nticket";

std::string login_cookie(const std::string& token, std::int64_t seconds) {
  return std::string(kLoginCookie) + '=' + token +
         "; Path=/; HttpOnly; Secure; SameSite=Strict; Max-Age=" + std::to_string(seconds);
}

const Person& caller_of(const Api& api, const Call& call) {
  const Person* person = api.parts.people.person(call.caller.person);
  if (!person || person->disabled) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  return *person;
}

// The log-in of the caller; it can have ended while the request waited.
LoginRow login_row(const Api& api, const Call& call) {
  const Login* login = api.parts.logins.find(call.caller.token_hash, wall_seconds());
  if (!login) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  return login->row;
}

LoginRow new_login(const Api& api, const Call& call, const Person& person, const std::string& token) {
  const RelaySettings settings = api.parts.people.settings(api.limits);
  LoginRow row;
  row.token_hash = hash_secret(token);
  row.person = person.id;
  row.stage = person.totp_secret.empty() ? stage_after_code(api.parts.people, person) : LoginStage::Totp;
  row.created_at = row.last_used = wall_seconds();
  row.expires_at = row.created_at + (row.stage == LoginStage::Full ? settings.login_seconds : kUnfinished);
  row.idle_limit = settings.idle_seconds;
  row.address = call.source;
  return row;
}

// A log-in that continues here, and where it came from.
struct Moved {
  LoginRow login{};
  std::string home{};
};

}  // namespace

LoginStage stage_after_code(const People& people, const Person& person) {
  if (person.must_change) return LoginStage::Password;
  if (person.totp_secret.empty() && people.totp_required(person.role)) return LoginStage::TotpSetup;
  return LoginStage::Full;
}

asio::awaitable<void> move_to_stage(Api& api, Call& call, LoginStage stage) {
  LoginRow row = login_row(api, call);
  if (row.stage == stage) co_return;
  row.stage = stage;
  row.last_used = wall_seconds();
  if (stage == LoginStage::Full)
    row.expires_at = row.last_used + api.parts.people.settings(api.limits).login_seconds;
  const auto entry = trail_entry<TrailKind::LoginSucceeded>(call.subject(), stage_name(stage));
  const auto job = [row, entry](Store& store) {
    if (!update_login(store.database(), row)) throw ApiError(HttpStatus::unauthorized, "Please log in.");
    append_trail(store.database(), std::span(&entry, 1));
  };
  co_await api.parts.database.run(job);
  api.parts.logins.update(row);
}

void require_good_password(const std::string& password) {
  if (const std::string fault = password_fault(password); !fault.empty())
    throw ApiError(HttpStatus::bad_request, "The new password " + fault + '.', "weak");
}

JsonReply log_in(Api& api, Call& call) {
  const std::string name = text_in(call.body, "name");
  const std::string password = text_in(call.body, "password");
  if (name.empty() || name.size() > kLongestName || password.empty() || password.size() > kLongestPassword)
    throw ApiError(HttpStatus::bad_request, "A name and a password are needed.");
  const Person* known = api.parts.people.person_named(name);
  const std::string hash = known && !known->disabled ? known->password : api.no_user_hash;
  try {
    co_await check_password(api, call, name, hash, password);
  } catch (const ApiError& failure) {
    if (failure.status == HttpStatus::unauthorized) {
      api.parts.audit.write(
          trail_entry<TrailKind::LoginFailed>({.actor = name, .address = call.peer}, "password"));
      api.log.write(call.peer, "", "wrong name or password for \"" + name + "\"");
    }
    throw;
  }
  // The person can have been changed while the password was verified.
  const Person* person = api.parts.people.person_named(name);
  if (!person || person->disabled || person->password != hash)
    throw ApiError(HttpStatus::unauthorized, "The name or the password is wrong.", "wrong");
  const std::string token = random_token(kTokenBytes);
  LoginRow row = new_login(api, call, *person, token);
  const Role role = person->role;
  const auto entry =
      trail_entry<TrailKind::LoginSucceeded>({.actor = name, .address = call.peer}, stage_name(row.stage));
  const auto job = [row, entry](Store& store) {
    append_trail(store.database(), std::span(&entry, 1));
    return add_login(store.database(), row);
  };
  row.id = co_await api.parts.database.run(job);
  api.parts.logins.add(row);
  call.cookie = login_cookie(token, api.parts.people.settings(api.limits).login_seconds);
  co_return Json{{"name", name}, {"role", role_name(role)}, {"stage", stage_name(row.stage)}};
}

// The ticket is worth the log-in at another relay, with its stage and its end.
JsonReply log_in_with_ticket(Api& api, Call& call) {
  const auto unknown = [] { return ApiError(HttpStatus::unauthorized, "The ticket is not valid any more."); };
  const std::string ticket = text_in(call.body, "ticket");
  if (!api.parts.cluster.joined() || ticket.empty() || ticket.size() > kLongestName) throw unknown();
  if (api.attempts.refused(kTicketAttempts, call.source))
    throw ApiError(HttpStatus::too_many_requests, "Too many failures. Wait ten minutes and try again.");
  (void)api.attempts.add(kTicketAttempts, call.source);
  const std::string token = random_token(kTokenBytes);
  const auto job = [hash = hash_secret(ticket), own = hash_secret(token), relay = api.parts.cluster.own().id,
                    source = call.source, peer = call.peer](Store& store) {
    const auto taken = take_ticket(store.database(), hash, relay);
    auto row = taken ? find_login(store.database(), taken->login) : std::nullopt;
    const auto person = row ? find_person(store.database(), row->person) : std::nullopt;
    if (!person || person->disabled || row->stage != LoginStage::Full || row->expires_at <= wall_seconds())
      return std::optional<Moved>();
    row->token_hash = own;
    row->created_at = row->last_used = wall_seconds();
    row->address = source;
    row->id = add_login(store.database(), *row);
    const auto entry =
        trail_entry<TrailKind::LoginSucceeded>({.actor = person->name, .address = peer}, "moved");
    append_trail(store.database(), std::span(&entry, 1));
    return std::optional(Moved{*row, taken->home});
  };
  const std::optional<Moved> moved = co_await api.parts.database.run(job);
  if (!moved) throw unknown();
  api.attempts.succeeded(kTicketAttempts, call.source);
  api.parts.logins.add(moved->login);
  call.cookie = login_cookie(token, moved->login.expires_at - wall_seconds());
  co_return Json{{"stage", stage_name(moved->login.stage)}, {"home", moved->home}};
}

JsonReply log_in_with_code(Api& api, Call& call) {
  try {
    co_await check_code(api, call, call.caller.person, text_in(call.body, "code"));
  } catch (const ApiError& failure) {
    if (failure.status == HttpStatus::unauthorized)
      api.parts.audit.write(trail_entry<TrailKind::LoginFailed>(call.subject(), "code"));
    throw;
  }
  const LoginStage stage = stage_after_code(api.parts.people, caller_of(api, call));
  co_await move_to_stage(api, call, stage);
  co_return Json{{"stage", stage_name(stage)}};
}

JsonReply log_out(Api& api, Call& call) {
  const Bytes hash = call.caller.token_hash;
  const auto entry = trail_entry<TrailKind::LoginEnded>(call.subject(), "log-out", std::nullopt);
  // The log-in ends in memory even if the database does not remove it.
  api.parts.logins.end(hash, "logged out");
  call.cookie = login_cookie("", 0);
  const auto job = [hash, entry](Store& store) {
    remove_login(store.database(), hash);
    append_trail(store.database(), std::span(&entry, 1));
  };
  co_await api.parts.database.run(job);
  co_return Json::object();
}

JsonReply who_am_i(Api& api, Call& call) {
  const Person& person = caller_of(api, call);
  const Login* login = api.parts.logins.find(call.caller.token_hash, wall_seconds());
  if (!login) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  Json reply = {{"name", person.name},
                {"role", role_name(person.role)},
                {"stage", stage_name(login->row.stage)},
                {"totp", !person.totp_secret.empty()},
                {"backup_codes_left", api.parts.people.backup_codes_left(person.id)},
                {"step_up_until", login->step_up_until},
                {"expires_at", login->row.expires_at},
                {"idle_at", nullptr}};
  if (const auto idle = Logins::idle_at(*login); idle > 0) reply["idle_at"] = idle;
  co_return reply;
}

JsonReply change_password(Api& api, Call& call) {
  const std::string old_password = text_in(call.body, "old");
  const std::string new_password = text_in(call.body, "new");
  require_good_password(new_password);
  if (new_password == old_password)
    throw ApiError(HttpStatus::bad_request, "The new password is the old one.", "weak");
  const std::string old_hash = caller_of(api, call).password;
  co_await check_password(api, call, call.caller.name, old_hash, old_password);
  const std::string hash = co_await hashed(api, call, new_password);
  const auto entry = trail_entry<TrailKind::PasswordChanged>(call.subject());
  const auto work = [name = call.caller.name, old_hash, hash,
                     keep = call.caller.token_hash](Database& database) {
    auto person = find_person(database, name);
    if (!person || person->password != old_hash) throw ApiError(HttpStatus::unauthorized, "Please log in.");
    person->password = hash;
    person->must_change = false;
    update_person(database, *person);
    remove_logins_of(database, person->id, keep);
  };
  co_await change(api, work, entry);
  api.parts.logins.end_all_of(call.caller.person, call.caller.token_hash, "the password was changed");
  const LoginStage stage = stage_after_code(api.parts.people, caller_of(api, call));
  co_await move_to_stage(api, call, stage);
  co_return Json{{"stage", stage_name(stage)}};
}

// Also extends the absolute time of the log-in: the way to go on after the warning of its end.
JsonReply step_up(Api& api, Call& call) {
  const std::string code = text_in(call.body, "code");
  const char* method = code.empty() ? "password" : "code";
  try {
    if (code.empty()) {
      co_await check_password(api, call, call.caller.name, caller_of(api, call).password,
                              text_in(call.body, "password"));
    } else {
      co_await check_code(api, call, call.caller.person, code);
    }
  } catch (const ApiError& failure) {
    if (failure.status == HttpStatus::unauthorized)
      api.parts.audit.write(trail_entry<TrailKind::StepUpFailed>(call.subject(), method));
    throw;
  }
  LoginRow row = login_row(api, call);
  const std::int64_t now = wall_seconds();
  row.expires_at = now + api.parts.people.settings(api.limits).login_seconds;
  row.last_used = now;
  const auto entry = trail_entry<TrailKind::StepUpSucceeded>(call.subject(), method);
  const auto job = [row, entry](Store& store) {
    update_login(store.database(), row);
    append_trail(store.database(), std::span(&entry, 1));
  };
  co_await api.parts.database.run(job);
  api.parts.logins.step_up(row.token_hash, now, row.expires_at);
  co_return Json{{"until", now + kStepUpSeconds}};
}

}  // namespace vlk::relay
