// The port for operators and their monitoring: plain HTTP, apart from the port for agents and browsers.
#pragma once

#include <cstddef>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "relay/base/limits.h"
#include "relay/base/log.h"

namespace vlk::relay {

// Where the port is.
struct OperatorsAddress {
  boost::asio::ip::address address;
  unsigned short port = 0;  // 0 means any free port
};
// Reads ADDRESS:PORT, with an IPv6 address in brackets. Returns nothing if it is not valid.
[[nodiscard]] std::optional<OperatorsAddress> parse_operators_address(std::string_view text);
// Whether only this host or a private network can reach a port at this address.
[[nodiscard]] bool is_private(const boost::asio::ip::address& address);

// Answers one GET or HEAD request on each connection and closes it. Whoever reaches the port can only look:
// there are at most kMostConnections, the oldest of which goes when a further one comes, each ends after
// Limits::operators_request, and a request has at most kMostRequest bytes. Used on the relay's one thread.
class OperatorsPort {
 public:
  static constexpr std::size_t kMostConnections = 16;
  static constexpr std::size_t kMostRequest = 4096;

  struct Answer {
    unsigned status = 404;
    std::string text{};  // the body
    std::string type = "text/plain; charset=utf-8";
  };
  // Answers the request for a path; status 404 says that there is nothing at this path.
  using Answerer = std::function<boost::asio::awaitable<Answer>(std::string path)>;

  // Opens the port. Throws std::runtime_error with a sentence for the operator. `log` and `limits` outlive
  // this object, and it outlives the executor's context or its run.
  OperatorsPort(const boost::asio::any_io_executor& executor, const OperatorsAddress& where, Answerer answer,
                const Log& log, const Limits& limits);

  [[nodiscard]] unsigned short port() const { return acceptor_.local_endpoint().port(); }
  // Accepts no further connections and closes those that are open.
  void stop();

 private:
  struct Connection;

  boost::asio::awaitable<void> accept();
  boost::asio::awaitable<void> serve(std::shared_ptr<Connection> connection);
  void make_room();

  const Answerer answer_;
  const Log& log_;
  const Limits& limits_;
  boost::asio::ip::tcp::acceptor acceptor_;
  std::list<std::weak_ptr<Connection>> open_;  // the oldest first
};

}  // namespace vlk::relay
