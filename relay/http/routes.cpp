// Answers the console's JSON requests.
#include "relay/http/routes.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::string_view kAgentsPath = "/api/agents/";

Reply json_reply(const Request& request, const nlohmann::json& body) {
  return make_reply(request, HttpStatus::ok, "application/json", dump(body));
}

// The JSON object in the request's body; null if the body is not a JSON object.
nlohmann::json body_of(const Request& request) {
  nlohmann::json body = nlohmann::json::parse(request.body(), nullptr, false);
  return body.is_object() ? body : nlohmann::json();
}

// The text under `key` in full length; text_field would shorten it to 200 bytes.
std::string whole_text(const nlohmann::json& body, const char* key) {
  if (!body.is_object()) return {};
  const auto found = body.find(key);
  return found != body.end() && found->is_string() ? found->get<std::string>() : std::string();
}

std::string login_cookie(const std::string& token, std::int64_t seconds) {
  return std::string(kLoginCookie) + '=' + token +
         "; Path=/; HttpOnly; Secure; SameSite=Strict; Max-Age=" + std::to_string(seconds);
}

}  // namespace

HttpApi::HttpApi(Parts& parts, Store& store, const Log& log, const Limits& limits)
    : parts_(parts),
      store_(store),
      log_(log),
      limits_(limits),
      failures_by_name_(limits.failures_per_name, limits.failure_window, limits.counted_keys),
      failures_by_address_(limits.failures_per_address, limits.failure_window, limits.counted_keys),
      no_user_hash_(hash_password(random_token(kTokenBytes))) {}

asio::awaitable<Reply> HttpApi::answer(const Request& request, std::string peer, std::string source) {
  thread_.check();
  std::string problem;
  try {
    co_return co_await route(request, peer, source);
  } catch (const std::exception& failure) {
    problem = failure.what();
  }
  log_.write(peer, "", problem);
  co_return error_reply(request, HttpStatus::internal_server_error,
                        "The relay could not carry out the request; its log says why.");
}

asio::awaitable<Reply> HttpApi::route(const Request& request, const std::string& peer,
                                      const std::string& source) {
  const std::string_view target(request.target());
  const bool get = request.method() == http::verb::get;
  const bool post = request.method() == http::verb::post;
  if (!get && !same_origin(request)) {
    co_return error_reply(request, HttpStatus::forbidden, "The request came from another site.");
  }
  if (target == "/api/login" && post) co_return co_await log_in(request, peer, source);
  const auto login = login_of(request);
  if (!login) co_return error_reply(request, HttpStatus::unauthorized, "Please log in.");
  if (target == "/api/me" && get) co_return json_reply(request, {{"name", login->user}});
  if (target == "/api/logout" && post) co_return log_out(request);
  if (target == "/api/password" && post) co_return co_await change_password(request, *login, peer, source);
  if (target == "/api/agents" && get) {
    co_return json_reply(request, {{"agents", parts_.machines.list(parts_.sessions.representatives())}});
  }
  if (target.starts_with(kAgentsPath) && request.method() == http::verb::delete_) {
    co_return forget(request, *login, peer);
  }
  co_return error_reply(request, HttpStatus::not_found, "The relay has nothing at this address.");
}

std::optional<HttpApi::Login> HttpApi::login_of(const Request& request) {
  const std::string token = cookie(request, kLoginCookie);
  if (token.empty()) return std::nullopt;
  auto hash = hash_secret(token);
  const auto user = store_.login_user(hash);
  if (!user) return std::nullopt;
  return Login{*user, std::move(hash)};
}

asio::awaitable<bool> HttpApi::verify(std::string hash, std::string password) {
  const auto work = [hash = std::move(hash), password = std::move(password)]() -> asio::awaitable<bool> {
    co_return verify_password(hash, password);
  };
  co_return co_await asio::co_spawn(pool_, work, asio::use_awaitable);
}

bool HttpApi::locked_out(const std::string& user, const std::string& source) {
  const auto now = Clock::now();
  return failures_by_name_.exhausted(user + '\n' + source, now) ||
         failures_by_address_.exhausted(source, now);
}

void HttpApi::count_failure(const std::string& user, const std::string& source) {
  const auto now = Clock::now();
  failures_by_name_.add(user + '\n' + source, now);
  failures_by_address_.add(source, now);
}

// Removes the failure that was counted in advance, and all failures of this name from this address. The
// failures of other names from this address remain.
void HttpApi::count_success(const std::string& user, const std::string& source) {
  failures_by_name_.forget(user + '\n' + source);
  failures_by_address_.take_back(source);
}

asio::awaitable<Reply> HttpApi::log_in(const Request& request, const std::string& peer,
                                       const std::string& source) {
  const nlohmann::json body = body_of(request);
  const std::string user = text_field(body, "name");
  const std::string password = whole_text(body, "password");
  if (user.empty() || password.empty() || password.size() > kLongestPassword) {
    co_return error_reply(request, HttpStatus::bad_request, "A name and a password are needed.");
  }
  if (locked_out(user, source)) {
    log_.write(peer, "", "log-in refused for \"" + user + "\": too many failures");
    co_return error_reply(request, HttpStatus::too_many_requests,
                          "Too many failed log-ins. Wait ten minutes and try again.");
  }
  // A failure is counted before the password is verified, so that simultaneous attempts cannot pass the
  // limit. A success removes it again.
  count_failure(user, source);
  const auto stored = store_.password_hash(user);
  const bool right = co_await verify(stored.value_or(no_user_hash_), password);
  if (!stored || !right) {
    parts_.audit.write({"login-failed", user, "", peer, ""});
    log_.write(peer, "", "wrong name or password for \"" + user + "\"");
    co_return error_reply(request, HttpStatus::unauthorized, "The name or the password is wrong.");
  }
  count_success(user, source);
  const std::string token = random_token(kTokenBytes);
  store_.add_login(hash_secret(token), user, wall_seconds() + limits_.login.count());
  parts_.audit.write({"login", user, "", peer, ""});
  Reply reply = json_reply(request, {{"name", user}});
  reply.set(http::field::set_cookie, login_cookie(token, limits_.login.count()));
  co_return reply;
}

Reply HttpApi::log_out(const Request& request) {
  const auto hash = hash_secret(cookie(request, kLoginCookie));
  store_.remove_login(hash);
  parts_.browsers.end_login(hash);
  Reply reply = json_reply(request, nlohmann::json::object());
  reply.set(http::field::set_cookie, login_cookie("", 0));
  return reply;
}

asio::awaitable<Reply> HttpApi::change_password(const Request& request, const Login& login,
                                                const std::string& peer, const std::string& source) {
  const nlohmann::json body = body_of(request);
  const std::string old_password = whole_text(body, "old");
  const std::string new_password = whole_text(body, "new");
  if (const std::string fault = password_fault(new_password); !fault.empty())
    co_return error_reply(request, HttpStatus::bad_request, "The new password " + fault + '.');
  if (locked_out(login.user, source)) {
    co_return error_reply(request, HttpStatus::too_many_requests,
                          "Too many failures. Wait ten minutes and try again.");
  }
  count_failure(login.user, source);
  const auto stored = store_.password_hash(login.user);
  const bool right = co_await verify(stored.value_or(no_user_hash_), old_password);
  if (!stored || !right)
    co_return error_reply(request, HttpStatus::unauthorized, "The old password is wrong.");
  count_success(login.user, source);
  const auto work = [new_password]() -> asio::awaitable<std::string> {
    co_return hash_password(new_password);
  };
  const std::string hash = co_await asio::co_spawn(pool_, work, asio::use_awaitable);
  store_.set_password(login.user, hash, login.token_hash);
  parts_.browsers.end_other_logins(login.user, login.token_hash);
  parts_.audit.write({"password-changed", login.user, "", peer, ""});
  co_return json_reply(request, nlohmann::json::object());
}

Reply HttpApi::forget(const Request& request, const Login& login, const std::string& peer) {
  const std::string id(std::string_view(request.target()).substr(kAgentsPath.size()));
  switch (parts_.machines.forget(id)) {
    case Machines::Forgotten::Done:
      parts_.transfers.settle(id, Clock::time_point::max());
      parts_.audit.write({"agent-forgotten", login.user, id, peer, ""});
      return json_reply(request, nlohmann::json::object());
    case Machines::Forgotten::Connected:
      return error_reply(request, HttpStatus::conflict,
                         "The machine is connected; only an offline machine can be forgotten.");
    case Machines::Forgotten::Unknown:
      break;
  }
  return error_reply(request, HttpStatus::not_found, "There is no such machine.");
}

}  // namespace vlk::relay
