// The JSON requests of the console: log-in, password, the list of machines.
#pragma once

#include <optional>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>

#include "relay/base/rate_counter.h"
#include "relay/http/replies.h"
#include "relay/session/hub.h"

namespace vlk::relay {

inline constexpr char kLoginCookie[] = "vantelink_session";

// Used on the relay's one thread; passwords are worked on by a small pool beside it, since each takes a tenth
// of a second.
class HttpApi {
 public:
  HttpApi(Hub& hub, Store& store, const Log& log, const Limits& limits);

  // Answers a request whose target begins with /api/. `peer` is the address with port, `source` without.
  boost::asio::awaitable<Reply> answer(const Request& request, std::string peer, std::string source);

  struct Login {
    std::string user;
    std::vector<std::uint8_t> token_hash;
  };
  // Who sends this request, by its cookie; nobody without a login that holds. Throws DatabaseError.
  std::optional<Login> login_of(const Request& request);

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
  void take_failure_back(const std::string& user, const std::string& source);

  Hub& hub_;
  Store& store_;
  const Log& log_;
  const Limits& limits_;
  RateCounter failures_by_name_;
  RateCounter failures_by_address_;
  const std::string no_user_hash_;  // compared for names that do not exist, so that the time tells nothing
  boost::asio::thread_pool pool_{1};
};

}  // namespace vlk::relay
