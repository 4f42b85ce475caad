// Requests to the handlers, and people to make them.
#include "relay/people/api_fixture.h"

#include <future>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/use_future.hpp>

#include "relay/base/secrets.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay {

ApiTest::ApiTest() {
  add("root", Role::Administrator);
  restart_api();
}

void ApiTest::restart_api() {
  api_ = std::make_unique<HttpApi>(*parts_, admission_, updates_, reader_, log_, limits_);
}

PersonId ApiTest::add(const std::string& name, Role role) {
  static const std::string hash = hash_password(kGoodPassword);
  People::Contents all = database_.run_and_wait([&](Store& store) {
    Person person;
    person.name = name;
    person.password = hash;
    person.role = role;
    (void)add_person(store.database(), person);
    return People::load(store.database());
  });
  parts_->people.replace(std::move(all));
  return parts_->people.person_named(name)->id;
}

std::string ApiTest::log_in_as(const std::string& name, LoginStage stage) {
  const std::string token = random_token(32);
  LoginRow row;
  row.token_hash = hash_secret(token);
  row.person = parts_->people.person_named(name)->id;
  row.stage = stage;
  row.created_at = row.last_used = wall_seconds();
  row.expires_at = row.created_at + 1000;
  row.address = "10.0.0.9";
  row.id = database_.run_and_wait([&](Store& store) { return add_login(store.database(), row); });
  parts_->logins.add(row);
  return std::string(kLoginCookie) + '=' + token;
}

Request ApiTest::request_for(const std::string& method, const std::string& target, const Json& body,
                             const std::string& cookie) {
  Request request(http::string_to_verb(method), target, 11);
  request.set(http::field::host, "relay");
  request.set(http::field::origin, "https://relay");
  if (!cookie.empty()) request.set(http::field::cookie, cookie);
  request.body() = body.dump();
  return request;
}

asio::awaitable<ApiTest::Answer> ApiTest::answer_to(Request request, std::string source) {
  const Reply reply = co_await api_->answer(request, source + ":1234", source);
  const std::string set_cookie(reply[http::field::set_cookie]);
  co_return Answer{reply.result_int(), Json::parse(reply.body().text, nullptr, false),
                   set_cookie.substr(0, set_cookie.find(';')), std::string(reply[http::field::retry_after])};
}

ApiTest::Answer ApiTest::call(const std::string& method, const std::string& target, const Json& body,
                              const std::string& cookie, const std::string& source) {
  auto answer =
      asio::co_spawn(io_, answer_to(request_for(method, target, body, cookie), source), asio::use_future);
  run_until([&] { return answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
  return answer.get();
}

ApiTest::Answer ApiTest::log_in_with(const std::string& name, const std::string& password,
                                     const std::string& source) {
  return call("POST", "/api/login", {{"name", name}, {"password", password}}, {}, source);
}

}  // namespace vlk::relay
