// The relay's server: listens on one TLS port and serves each path on it.
#pragma once

#include <optional>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/http/routes.h"
#include "relay/links/agent_link.h"
#include "relay/net/certificate.h"
#include "relay/net/websocket_link.h"

namespace vlk::relay {

// Everything runs on the one thread that calls run(), except the hashing of passwords.
class Server {
 public:
  struct Settings {
    std::string address = "127.0.0.1";
    unsigned short port = 0;  // 0 means any free port
    std::string console;      // folder of the console's files
    std::string updates;      // folder of the agents' updates; need not exist
    CertificateFiles certificate;
  };
  // Opens the port. `store`, `log` and `limits` outlive the server. Throws std::runtime_error with a
  // sentence for the operator.
  Server(const Settings& settings, Store& store, const Log& log, const Limits& limits);

  [[nodiscard]] unsigned short port() const;
  // Serves until stop().
  void run();
  // Closes all connections, then makes run() return. Callable from any thread and from a signal handler of
  // context().
  void stop();
  [[nodiscard]] boost::asio::io_context& context() { return io_; }

 private:
  boost::asio::awaitable<void> accept();
  boost::asio::awaitable<void> tick();
  boost::asio::awaitable<void> serve(boost::asio::ip::tcp::socket socket);
  boost::asio::awaitable<void> serve_requests(TlsStream stream, std::string peer, std::string source);
  // Sends the reply. Returns false if the peer read nothing for too long or has disconnected.
  [[nodiscard]] boost::asio::awaitable<bool> write(TlsStream& stream, Reply& reply);
  boost::asio::awaitable<void> refuse(TlsStream& stream, boost::beast::error_code error);
  boost::asio::awaitable<Reply> answer(const Request& request, const std::string& peer,
                                       const std::string& source);
  // The sender of an upgrade request: an agent, or a browser with a valid log-in.
  struct Caller {
    bool agent = false;
    HttpApi::Login login;  // for a browser only
  };
  // Checks an upgrade request. If it is refused, returns nothing and puts the reply into `refusal`.
  [[nodiscard]] std::optional<Caller> admit(const Request& request, const std::string& peer, Reply& refusal);
  // Completes the upgrade and serves the WebSocket until its connection ends.
  boost::asio::awaitable<void> serve_upgrade(TlsStream stream, Request request, Caller caller,
                                             std::string peer, std::string source);

  const std::string console_;
  const std::string updates_;
  const Log& log_;
  const Limits& limits_;
  boost::asio::io_context io_{1};
  boost::asio::ssl::context tls_;
  boost::asio::ip::tcp::acceptor acceptor_;
  Parts parts_;
  HttpApi api_;
  RateCounter enrolments_;
  RateCounter refusals_;
  AgentContext agents_;
  std::size_t connections_ = 0;
  bool stopping_ = false;
};

}  // namespace vlk::relay
