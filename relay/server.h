// The relay itself: one TLS port, and what is behind each of its paths.
#pragma once

#include <string>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/http/routes.h"
#include "relay/links/agent_link.h"
#include "relay/links/console_link.h"
#include "relay/net/certificate.h"

namespace vlk::relay {

// All of it runs on the one thread that calls run(); passwords alone are worked on elsewhere.
class Server {
 public:
  struct Settings {
    std::string address = "127.0.0.1";
    unsigned short port = 0;  // 0 picks a free one
    std::string console;      // folder of the console's files
    std::string updates;      // folder of the agents' updates; need not exist
    CertificateFiles certificate;
  };
  // Listens at once. Throws std::runtime_error with one sentence when it cannot.
  Server(const Settings& settings, Store& store, const Log& log, const Limits& limits);

  unsigned short port() const;
  // Serves until stop().
  void run();
  // Ends all connections, then run(). Callable from any thread and from a signal handler of the context.
  void stop();
  boost::asio::io_context& context() { return io_; }

 private:
  boost::asio::awaitable<void> accept();
  boost::asio::awaitable<void> tick();
  boost::asio::awaitable<void> serve(boost::asio::ip::tcp::socket socket);
  boost::asio::awaitable<void> serve_requests(TlsStream stream, std::string peer, std::string source);
  // False when the peer took nothing for too long, or is gone.
  boost::asio::awaitable<bool> write(TlsStream& stream, Reply& reply);
  boost::asio::awaitable<void> refuse(TlsStream& stream, boost::beast::error_code error);
  boost::asio::awaitable<Reply> answer(const Request& request, const std::string& peer,
                                       const std::string& source);
  // Takes over the connection of an upgrade that was let in; otherwise says in `refusal` why not.
  boost::asio::awaitable<bool> upgrade(TlsStream& stream, const Request& request, const std::string& peer,
                                       const std::string& source, Reply& refusal);

  const std::string console_;
  const std::string updates_;
  Store& store_;
  const Log& log_;
  const Limits& limits_;
  boost::asio::io_context io_{1};
  boost::asio::ssl::context tls_;
  boost::asio::ip::tcp::acceptor acceptor_;
  Hub hub_;
  HttpApi api_;
  RateCounter enrolments_;
  RateCounter refusals_;
  AgentContext agents_;
  std::size_t connections_ = 0;
  bool stopping_ = false;
};

}  // namespace vlk::relay
