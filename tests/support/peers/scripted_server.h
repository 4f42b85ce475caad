// A TLS server that does exactly what a test tells it: any bytes, in any pieces, at any point of the
// protocol, and a record of all that it is sent. It takes one connection after another and is driven by the
// test's own thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/ssl.h>

#include "support/certificates.h"
#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_test {

using Milliseconds = std::chrono::milliseconds;

// Every wait of a test ends here at the latest, with a failure that says what was waited for.
inline constexpr Milliseconds kPatience{40000};

// What the server speaks with one client. All waits have a deadline and throw std::runtime_error at its end.
class ServerConnection {
 public:
  ServerConnection(int socket, SSL_CTX* context);
  ~ServerConnection();
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  bool speaks() const;  // there is something to read, be it the end
  // The TLS handshake; false when it failed.
  bool handshake(Milliseconds patience = kPatience);

  // The client's request up to and with its blank line.
  std::string read_request();
  void send(std::string_view bytes);
  void send(const std::vector<std::uint8_t>& bytes);
  // Reads the request and accepts it; `behind` goes out in the same write as the response.
  std::string upgrade(std::string_view behind = {});
  // Accepts a request that was read before.
  void accept_upgrade(std::string_view behind = {});

  void send_frame(std::uint8_t opcode, std::string_view payload);
  void send_envelope(vlk::Msg type, std::uint32_t session, std::string_view payload, std::uint8_t flags = 1);

  // The next frame of any kind, or of the given type with others kept for later reads skipped over and
  // recorded.
  vlk::WsFrame read_frame(Milliseconds patience = kPatience);
  vlk::Envelope read_envelope(Milliseconds patience = kPatience);
  vlk::Envelope read_until(vlk::Msg type, Milliseconds patience = kPatience);

  // Returns when the client has handled all that it was sent before.
  void settle(Milliseconds patience = kPatience);
  // True when the client closes within the time; what it sends until then is recorded.
  bool wait_closed(Milliseconds patience = kPatience);

  // Asks the client's TLS for new keys in both directions (TLS 1.3).
  void update_keys();
  void end_sending();  // the closing alert alone; what the client sends is still read
  void close();        // with a closing alert
  void cut_off();      // without: the stream just ends
  void abort();        // the connection is reset

  const std::vector<vlk::Envelope>& received() const { return received_; }
  void forget_received() { received_.clear(); }  // for tests that are sent hundreds of mebibytes
  std::string server_name() const;

 private:
  bool fill(std::chrono::steady_clock::time_point deadline);  // false at the end of the stream
  [[noreturn]] void time_out(const char* what) const;

  int socket_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  std::string text_;  // bytes before the upgrade
  vlk::WsParser parser_;
  bool upgraded_ = false;
  std::vector<vlk::Envelope> received_;
};

// The payload as text.
std::string text_of(const vlk::Envelope& envelope);

class ScriptedServer {
 public:
  struct Options {
    std::vector<std::string> names = {"localhost"};
    bool self_signed = false;  // instead of by the authority
    int lowest_version = TLS1_2_VERSION;
    int highest_version = 0;  // 0: the library's
  };
  explicit ScriptedServer(const TestAuthority& authority);
  ScriptedServer(const TestAuthority& authority, const Options& options);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::uint16_t port() const { return port_; }

  // The next client, before its handshake; throws when none comes in time.
  std::unique_ptr<ServerConnection> accept(Milliseconds patience = kPatience);
  // The next client that asks for the link, after handshake and upgrade. Those who ask for an update before
  // it hear that there is none.
  std::unique_ptr<ServerConnection> accept_upgraded(Milliseconds patience = kPatience);
  // Whether a client comes within the time.
  bool has_client(Milliseconds patience);

 private:
  std::unique_ptr<ServerConnection> take();  // from the listener, where one waits
  // The next client that says something or closes. Wine now and then keeps the connection of an agent that
  // was killed open for good, and nobody is to wait for that one.
  std::unique_ptr<ServerConnection> accept_speaking(Milliseconds patience);

  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::vector<std::unique_ptr<ServerConnection>> silent_;  // taken, and passed over so far
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
};

}  // namespace vantelink_test
