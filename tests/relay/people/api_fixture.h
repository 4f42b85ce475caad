// A fixture with the relay's parts and the handlers of JSON requests, without a network.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/use_future.hpp>

#include "relay/http/routes.h"
#include "relay/session/parts_fixture.h"

namespace vlk::relay {

class ApiTest : public PartsTest {
 protected:
  struct Answer {
    unsigned status = 0;
    Json body;
    std::string cookie;
    std::string retry_after;
  };

  ApiTest();

  Answer call(const std::string& method, const std::string& target, const Json& body = Json::object(),
              const std::string& cookie = {}, const std::string& source = "10.0.0.9");
  // Stores a person with the password kGoodPassword and returns the id.
  PersonId add(const std::string& name, Role role);
  // Makes a log-in of the person in a stage and returns its cookie.
  std::string log_in_as(const std::string& name, LoginStage stage = LoginStage::Full);
  // Logs in with the password, and returns the answer.
  Answer log_in_with(const std::string& name, const std::string& password,
                     const std::string& source = "10.0.0.9");
  // Runs the relay's loop until `done` returns true.
  template <class Done>
  void run_until(Done done) {
    const auto guard = boost::asio::make_work_guard(io_);
    while (!done()) {
      io_.restart();
      io_.run_one();
    }
  }

  boost::asio::awaitable<Answer> answer_to(Request request, std::string source);
  Request request_for(const std::string& method, const std::string& target, const Json& body,
                      const std::string& cookie);

  // Makes the handlers again, after the limits were changed.
  void restart_api();

  Admission admission_{*parts_, log_};
  Updates updates_{{(folder_.path() / "updates").string(), {}}, io_.get_executor(), log_};
  const TrailKey key_ = TrailKey::load_or_make(folder_.path().string());
  TrailReader reader_{file_, key_};
  std::unique_ptr<HttpApi> api_;
};

inline constexpr char kGoodPassword[] = "correct horse battery";

}  // namespace vlk::relay
