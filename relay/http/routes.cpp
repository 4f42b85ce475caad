// Passes each JSON request to its handler.
#include "relay/http/routes.h"

#include "relay/base/secrets.h"
#include "relay/http/api/endpoints.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

constexpr std::size_t kTokenBytes = 32;
constexpr std::string_view kTrailPath = "/api/trail";
constexpr int kRetryBusy = 5;  // seconds
// The header of requests that a page repeats by itself. They do not count as a use of the log-in.
constexpr std::string_view kUnattended = "Vantelink-Unattended";

Reply json_reply(const Request& request, HttpStatus status, const Json& body) {
  return make_reply(request, status, "application/json", dump(body));
}

Reply refusal(const Request& request, const ApiError& error) {
  Json body = {{"error", error.what()}};
  if (!error.code.empty()) body["code"] = error.code;
  Reply reply = json_reply(request, error.status, body);
  if (error.retry_after > 0) reply.set(http::field::retry_after, std::to_string(error.retry_after));
  return reply;
}

// The JSON object in the request's body; an empty object if the body is not one.
Json body_of(const Request& request) {
  Json body = Json::parse(request.body(), nullptr, false);
  return body.is_object() ? body : Json::object();
}

void require_access(const Endpoint& endpoint, const std::optional<Caller>& caller) {
  if (endpoint.stages == kNobodyYet) return;
  if (!caller) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  if (!(endpoint.stages & bit_of(caller->stage)))
    throw ApiError(HttpStatus::forbidden, "The log-in is not at this stage.", "stage");
  if (!(endpoint.roles & bit_of(caller->role)))
    throw ApiError(HttpStatus::forbidden, "Your role does not allow this.", "role");
}

}  // namespace

HttpApi::HttpApi(Parts& parts, Admission& admission, const Updates& updates, TrailReader& trail,
                 const Log& log, const Limits& limits)
    : api_{.parts = parts,
           .admission = admission,
           .updates = updates,
           .log = log,
           .limits = limits,
           .attempts = Attempts(limits),
           .no_user_hash = hash_password(random_token(kTokenBytes))},
      trail_(trail, parts.database, parts.machines) {}

asio::awaitable<Reply> HttpApi::answer(const Request& request, std::string peer, std::string source) {
  thread_.check();
  Call call{.request = request, .peer = std::move(peer), .source = std::move(source)};
  std::string problem;
  std::optional<ApiError> refused;
  try {
    co_return co_await route(request, call);
  } catch (const ApiError& error) {
    refused = error;
  } catch (const DatabaseBusy&) {
    refused = ApiError(HttpStatus::service_unavailable, "The relay has too much to do. Try again.", "busy",
                       kRetryBusy);
  } catch (const DatabaseLost& failure) {
    refused = ApiError(HttpStatus::service_unavailable, "The relay cannot reach its database. Try again.",
                       "no-database", kRetryBusy);
  } catch (const std::exception& failure) {
    problem = failure.what();
  }
  if (refused) co_return refusal(request, *refused);
  api_.log.write(call.peer, "", problem);
  co_return error_reply(request, HttpStatus::internal_server_error,
                        "The relay could not carry out the request; its log says why.");
}

asio::awaitable<Reply> HttpApi::route(const Request& request, Call& call) {
  if (request.method() != http::verb::get && !from_own_page(request))
    throw ApiError(HttpStatus::forbidden, "The request came from another site.");
  const Endpoint* endpoint = find_endpoint(request.method(), path_of(request), call.key);
  const std::optional<Caller> caller = login_of(request);
  // Who has not logged in does not learn which paths exist.
  if (!endpoint && !caller) throw ApiError(HttpStatus::unauthorized, "Please log in.");
  if (!endpoint) throw ApiError(HttpStatus::not_found, "The relay has nothing at this address.");
  require_access(*endpoint, caller);
  if (endpoint->stages != kNobodyYet) call.caller = *caller;
  call.body = body_of(request);
  if (!endpoint->handler) co_return co_await show_trail(request, call);
  const Json body = co_await endpoint->handler(api_, call);
  Reply reply = json_reply(request, HttpStatus::ok, body);
  if (call.cookie) reply.set(http::field::set_cookie, *call.cookie);
  co_return reply;
}

asio::awaitable<Reply> HttpApi::show_trail(const Request& request, const Call& call) {
  if (path_of(request) == kTrailPath) return trail_.page(request);
  return trail_.begin_export(request, call.caller.name, call.peer);
}

std::optional<Caller> HttpApi::login_of(const Request& request) {
  const std::string token = cookie(request, kLoginCookie);
  if (token.empty()) return std::nullopt;
  const Bytes hash = hash_secret(token);
  const std::int64_t now = wall_seconds();
  const Login* login = api_.parts.logins.find(hash, now);
  const Person* person = login ? api_.parts.people.person(login->row.person) : nullptr;
  if (!person || person->disabled) return std::nullopt;
  Caller caller{person->id, person->name, person->role, login->row.stage, hash};
  if (request.find(kUnattended) == request.end()) api_.parts.logins.use(hash, now);
  return caller;
}

std::optional<Caller> HttpApi::full_login_of(const Request& request) {
  auto caller = login_of(request);
  if (caller && caller->stage != LoginStage::Full) return std::nullopt;
  return caller;
}

}  // namespace vlk::relay
