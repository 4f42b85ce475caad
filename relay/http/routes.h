// Answers the console's JSON requests: log-in, password, the list of machines.
#pragma once

#include <optional>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>

#include "relay/base/rate_counter.h"
#include "relay/base/thread_checker.h"
#include "relay/http/replies.h"
#include "relay/session/parts.h"

namespace vlk::relay {

inline constexpr char kLoginCookie[] = "vantelink_session";

// Used on the relay's one thread. Passwords are hashed on a second thread, because a hash takes 0.1 s.
class HttpApi {
 public:
  // The arguments outlive this.
  HttpApi(Parts& parts, Store& store, const Log& log, const Limits& limits);

  // Answers a request whose target begins with /api/. `peer` is the browser's address with port, `source`
  // its address without the port.
  [[nodiscard]] boost::asio::awaitable<Reply> answer(const Request& request, std::string peer,
                                                     std::string source);

  struct Login {
    std::string user;
    Bytes token_hash;
  };
  // The log-in that the request's cookie belongs to; nothing if there is no valid cookie. Throws
  // DatabaseError.
  [[nodiscard]] std::optional<Login> login_of(const Request& request);

 private:
  boost::asio::awaitable<Reply> route(const Request& request, const std::string& peer,
                                      const std::string& source);
  boost::asio::awaitable<Reply> log_in(const Request& request, const std::string& peer,
                                       const std::string& source);
  boost::asio::awaitable<Reply> change_password(const Request& request, const Login& login,
                                                const std::string& peer, const std::string& source);
  Reply log_out(const Request& request);
  Reply forget(const Request& request, const Login& login, const std::string& peer);
  boost::asio::awaitable<bool> verify(std::string hash, std::string password);
  bool locked_out(const std::string& user, const std::string& source);
  void count_failure(const std::string& user, const std::string& source);
  void count_success(const std::string& user, const std::string& source);

  const ThreadChecker thread_;
  Parts& parts_;
  Store& store_;
  const Log& log_;
  const Limits& limits_;
  RateCounter failures_by_name_;
  RateCounter failures_by_address_;
  // Used to verify passwords for unknown names, so that the time taken does not show which names exist.
  const std::string no_user_hash_;
  boost::asio::thread_pool pool_{1};
};

}  // namespace vlk::relay
