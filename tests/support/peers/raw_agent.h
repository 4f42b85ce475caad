// An agent's end of the link that sends whatever it is told, over the platform's sockets and OpenSSL.
#pragma once

#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_test {

// Blocking; connects and upgrades in the constructor, trusting anybody. Throws std::runtime_error.
class RawAgent {
 public:
  explicit RawAgent(unsigned short port);
  ~RawAgent();
  RawAgent(const RawAgent&) = delete;
  RawAgent& operator=(const RawAgent&) = delete;

  void send(vlk::Msg type, const std::string& payload);
  void send_bytes(const std::string& bytes);  // as one binary message
  vlk::Envelope read();                       // the next envelope; throws at the end of the connection
  bool closed();                              // reads until the relay closes

 private:
  bool fill();
  int socket_ = -1;
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  vlk::WsParser parser_;
};

}  // namespace vantelink_test
