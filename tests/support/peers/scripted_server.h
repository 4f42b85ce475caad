// A TLS server that accepts one connection after another and does with each exactly what the test says: any
// bytes, in any pieces, at any point of the protocol. The test's own thread drives it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>

#include "support/certificates.h"
#include "support/peers/server_connection.h"

namespace vantelink_test {

class ScriptedServer {
 public:
  struct Options {
    std::vector<std::string> names = {"localhost"};  // DNS names of the certificate
    bool self_signed = false;                        // whether its own key signs it, not the authority
    int lowest_version = TLS1_2_VERSION;
    int highest_version = 0;  // 0 means the highest that OpenSSL supports
  };
  explicit ScriptedServer(const TestAuthority& authority);
  ScriptedServer(const TestAuthority& authority, const Options& options);
  ~ScriptedServer();
  ScriptedServer(const ScriptedServer&) = delete;
  ScriptedServer& operator=(const ScriptedServer&) = delete;

  std::uint16_t port() const { return port_; }

  // Returns the next client, before its handshake; throws std::runtime_error when none connects in time.
  std::unique_ptr<ServerConnection> accept(Milliseconds timeout = kPatience);
  // Returns the next agent's connection, after handshake and upgrade. Requests for the update manifest that
  // arrive earlier are answered with 404. Connections whose first bytes are not a GET request are answered
  // with 400 and closed, as by any web server.
  std::unique_ptr<ServerConnection> accept_upgraded(Milliseconds timeout = kPatience);
  // Whether a client connects before the timeout.
  [[nodiscard]] bool has_client(Milliseconds timeout);

 private:
  std::unique_ptr<ServerConnection> take();  // accepts a client that already waits
  // Returns the next client that sends something or closes its connection. Other clients stay in `silent_`,
  // because Wine sometimes keeps the connection of a killed agent open forever.
  std::unique_ptr<ServerConnection> accept_active(Milliseconds timeout);

  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::vector<std::unique_ptr<ServerConnection>> silent_;  // accepted clients that have sent nothing so far
  std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_;
};

}  // namespace vantelink_test
