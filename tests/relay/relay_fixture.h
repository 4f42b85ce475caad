// A relay in this process, a browser made of Boost.Beast, and the agent's own client: what the relay's tests
// share.
#pragma once

#include <gtest/gtest.h>

#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

#include "core/agent_client.h"
#include "relay/server.h"

namespace vlk::relay {

using Json = nlohmann::json;

// A blocking HTTP and WebSocket client that trusts anybody.
class Browser {
 public:
  explicit Browser(unsigned short port);

  struct Answer {
    unsigned status = 0;
    Json body;
    std::string cookie;  // the session's, if one was set
    std::string text;
  };
  Answer request(const std::string& method, const std::string& target, const std::string& body = {},
                 const std::string& cookie = {}, const std::string& origin = {});
  // The bytes as they stand, and what comes back until the relay closes.
  std::string raw(const std::string& bytes);

  // The console's WebSocket; false with the status when it was refused.
  bool open_console(const std::string& cookie, unsigned& status, const std::string& origin = {});
  void send(const Json& message);
  void send_envelope(Msg type, std::uint32_t session, const std::string& payload);
  void send_bytes(const std::string& bytes);
  // The next text message of that type; others are passed over. Throws at the end of the connection.
  Json read_text(const std::string& type);
  Envelope read_envelope(Msg type);
  // Reads until the relay closes; the close code.
  unsigned wait_closed();

 private:
  using Tls = boost::beast::ssl_stream<boost::beast::tcp_stream>;
  std::unique_ptr<Tls> connect();
  const unsigned short port_;
  boost::asio::io_context io_;
  boost::asio::ssl::context tls_{boost::asio::ssl::context::tls_client};
  std::unique_ptr<boost::beast::websocket::stream<Tls>> socket_;
};

class RelayTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  void start();  // with `limits_`
  void stop();

  // The cookie of a login as "admin".
  std::string log_in();
  // A logged-in browser with its console open.
  std::unique_ptr<Browser> console();
  // An agent of that name that trusts the relay; its settings after it came online.
  std::unique_ptr<agent::AgentClient> connect_agent(const std::string& name, bool unattended = true);
  // The list's entry of the machine with that name, once it is in that state.
  Json wait_for_machine(const std::string& name, const std::string& state);
  // Whether a line of the log holds the text, now or soon.
  bool logged(const std::string& text);

  std::filesystem::path folder_;
  Limits limits_;
  CertificateFiles certificate_;
  std::mutex log_lock_;
  std::string log_text_;
  std::unique_ptr<Log> log_;
  std::unique_ptr<Store> store_;
  std::unique_ptr<Server> server_;
  std::thread thread_;
  unsigned short port_ = 0;
};

inline constexpr char kPassword[] = "correct horse battery";

}  // namespace vlk::relay
