// Answers the console's JSON requests, after checking who makes them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include <boost/asio/awaitable.hpp>

#include "relay/base/threads/thread_checker.h"
#include "relay/http/api/api.h"
#include "relay/http/trail_routes.h"

namespace vlk::relay {

// Used on the relay's one thread. Passwords are hashed on a second thread, because a hash takes 0.1 s.
class HttpApi {
 public:
  // The arguments outlive this.
  HttpApi(Parts& parts, Admission& admission, const Updates& updates, TrailReader& trail, const Log& log,
          const Limits& limits);

  // Sets a function that returns the relay's status, for administrators.
  void on_status(std::function<Json()> status) { api_.status = std::move(status); }

  // Answers a request whose target begins with /api/. `peer` is the browser's address with port, `source`
  // its address without the port.
  [[nodiscard]] boost::asio::awaitable<Reply> answer(const Request& request, std::string peer,
                                                     std::string source);

  // The log-in that the request's cookie belongs to, in any stage; nothing if there is no valid cookie.
  // Counts as a use of the log-in.
  [[nodiscard]] std::optional<Caller> login_of(const Request& request);
  // The same for the upgrade to a browser's WebSocket: only a full log-in.
  [[nodiscard]] std::optional<Caller> full_login_of(const Request& request);

 private:
  [[nodiscard]] boost::asio::awaitable<Reply> route(const Request& request, Call& call);
  // Answers a request for the trail, which is sent in pieces or built by the trail's own thread.
  [[nodiscard]] boost::asio::awaitable<Reply> show_trail(const Request& request, const Call& call);

  const ThreadChecker thread_;
  Api api_;
  TrailRoutes trail_;
};

}  // namespace vlk::relay
