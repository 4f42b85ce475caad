// Makes the requests of an input.
#include "world/api_script.h"

#include <array>
#include <chrono>
#include <future>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/use_future.hpp>

#include "relay/base/secrets.h"
#include "relay/http/api/endpoints.h"
#include "relay/storage/people/access_store.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay::fuzz {
namespace {

constexpr int kRequests = 16;
constexpr std::size_t kMembers = 6;  // of a request's body

struct KnownLogin {
  const char* person = "";
  LoginStage stage{};
};
constexpr KnownLogin kLogins[] = {
    {kAdministrator, LoginStage::Full},  {kRepresentative, LoginStage::Full},
    {kAuditor, LoginStage::Full},        {kAdministrator, LoginStage::Password},
    {kRepresentative, LoginStage::Totp}, {kRepresentative, LoginStage::TotpSetup},
};

constexpr const char* kKeys[] = {
    "name",     "password", "old",           "new",         "code",         "role",
    "teams",    "members",  "hours",         "token",       "step_up",      "ask_reason",
    "rights",   "group",    "ids",           "reason",      "minutes",      "machines",
    "replaces", "disabled", "totp_required", "login_hours", "idle_minutes", "retention_days",
};
constexpr const char* kTexts[] = {
    kMachine,         kWaitingMachine, kRepresentative,  kAuditor,  "new name", kPassword,
    "another secret", "administrator", "representative", "auditor", "see",      "files-up",
};
constexpr const char* kQueries[] = {
    "",          "?person=ada",  "?text=machine&limit=5", "?format=csv", "?format=jsonl",
    "?before=3", "?from=1&to=2", "?kind=login.failed"};
constexpr http::verb kVerbs[] = {http::verb::get,     http::verb::post, http::verb::patch,
                                 http::verb::delete_, http::verb::put,  http::verb::head};

template <class Choices>
const auto& chosen(const Choices& choices, std::uint8_t number) {
  return choices[number % std::size(choices)];
}

std::string token_of(std::size_t login) {
  return "token-" + std::to_string(login);
}

}  // namespace

ApiScript::ApiScript(Input& input) : input_(input) {
  add_logins();
}

void ApiScript::add_logins() {
  for (std::size_t i = 0; i < std::size(kLogins); ++i) {
    LoginRow row;
    row.token_hash = hash_secret(token_of(i));
    row.person = world_.person(kLogins[i].person);
    row.stage = kLogins[i].stage;
    row.created_at = row.last_used = wall_seconds();
    row.expires_at = row.created_at + 1000;
    row.address = "192.0.2.9";
    row.id = world_.database().run_and_wait([&](Store& store) { return add_login(store.database(), row); });
    world_.parts().logins.add(row);
  }
}

void ApiScript::run() {
  for (int i = 0; i < kRequests && !input_.empty(); ++i) {
    const Request request = next_request();
    const State before = stored();
    const auto caller = api_.login_of(request);
    const Answer answered = answer(request);
    check(request, answered, caller, before);
  }
}

Request ApiScript::next_request() {
  const std::uint8_t which = input_.byte();
  Request request;
  request.version(11);
  if (which < 0xF8) {
    const Endpoint& endpoint = chosen(endpoints(), which);
    std::string target(endpoint.path);
    const std::uint8_t key = input_.byte();
    const std::size_t at = target.find("{}");
    const std::string id = key < 8 ? std::to_string(key) : std::string(chosen(kTexts, key));
    if (at != std::string::npos) target.replace(at, 2, id);
    if (endpoint.method == http::verb::get) target += chosen(kQueries, key);
    request.method(endpoint.method);
    request.target(target);
  } else {
    request.method(chosen(kVerbs, input_.byte()));
    std::string target = "/api/" + input_.text();
    std::erase_if(target, [](char c) { return c <= ' '; });
    request.target(target);
  }
  fill(request);
  return request;
}

// Sets the headers and the body.
void ApiScript::fill(Request& request) {
  request.set(http::field::host, "relay");
  const std::uint8_t sender = input_.byte();
  if (sender < 0xF0) request.set(http::field::origin, "https://relay");
  if (sender >= 0xF8) request.set(http::field::origin, "https://elsewhere");
  const std::size_t login = sender % 8;
  if (login < std::size(kLogins))
    request.set(http::field::cookie, std::string(kLoginCookie) + '=' + token_of(login));
  const std::uint8_t form = input_.byte();
  request.body() =
      form == 0 ? input_.text() : next_body().dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json ApiScript::next_body() {
  Json body = Json::object();
  for (std::size_t left = input_.byte() % kMembers; left > 0; --left) {
    const std::string key = chosen(kKeys, input_.byte());
    body[key] = next_value();
  }
  return body;
}

Json ApiScript::next_value() {
  const std::uint8_t kind = input_.byte();
  switch (kind % 8) {
    case 0:
      return chosen(kTexts, input_.byte());
    case 1:
      return input_.byte() % 4;
    case 2:
      return kind % 16 < 8;
    case 3:
      return Json::array({input_.byte() % 4, input_.byte() % 4});
    case 4:
      return Json::array({chosen(kTexts, input_.byte())});
    case 5:
      return Json::array({{{"person", input_.byte() % 4}, {"rights", {chosen(kTexts, input_.byte())}}}});
    case 6:
      return Json::array({{{"team", input_.byte() % 4}, {"rights", {"see", "control"}}}});
    default:
      return input_.text();
  }
}

asio::awaitable<ApiScript::Answer> ApiScript::answer_to(const Request& request) {
  const Reply reply = co_await api_.answer(request, "192.0.2.9:1234", "192.0.2.9");
  Answer result{reply.result_int(), reply.body().bytes()};
  while (reply.body().pieces) {
    const std::string piece = co_await reply.body().pieces();
    if (piece.empty()) break;
    result.text += piece;
  }
  co_return result;
}

// Some requests need the threads of passwords and of the trail, so the loop waits for them.
ApiScript::Answer ApiScript::answer(const Request& request) {
  auto result = asio::co_spawn(world_.io(), answer_to(request), asio::use_future);
  const auto guard = asio::make_work_guard(world_.io());
  while (result.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
    world_.io().restart();
    world_.io().poll();
    world_.database().drain();
    world_.io().run_one_for(std::chrono::milliseconds(1));
  }
  return result.get();
}

}  // namespace vlk::relay::fuzz
