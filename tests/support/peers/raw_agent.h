// The agent's end of a connection to the relay, which sends any messages and bytes that the test gives it.
#pragma once

#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_test {

// Uses blocking sockets and OpenSSL. The constructor connects and upgrades, and accepts any certificate; it
// throws std::runtime_error when one of these steps fails.
class RawAgent {
 public:
  // `source` is the loopback address that the relay sees, as in "127.0.0.2"; without it, the system's choice.
  explicit RawAgent(unsigned short port, const char* source = nullptr);
  ~RawAgent();
  RawAgent(const RawAgent&) = delete;
  RawAgent& operator=(const RawAgent&) = delete;

  void send(vlk::Msg type, const std::string& payload);
  void send_bytes(const std::string& bytes);  // sends the bytes as one binary message
  void send_raw(const std::string& bytes);    // sends the bytes as they are, for instance a part of a frame
  vlk::Envelope read();  // returns the next envelope; throws std::runtime_error at the end of the connection
  [[nodiscard]] bool closed();  // reads up to a WebSocket close frame or the end of the connection

 private:
  [[nodiscard]] bool fill();  // reads bytes into the parser; false at the end of the connection
  int socket_ = -1;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  vlk::WsParser parser_;
};

}  // namespace vantelink_test
