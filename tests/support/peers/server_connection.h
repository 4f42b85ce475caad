// The server's end of one TLS connection, controlled by a test.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/ssl.h>

#include "support/waiting.h"
#include "wire/messages.h"
#include "wire/websocket.h"

namespace vantelink_test {

// A client's first bytes are not those of a GET request.
struct NotAGetRequest : std::runtime_error {
  NotAGetRequest() : std::runtime_error("the client's first bytes are not a GET request") {}
};

// Speaks TLS, then HTTP, then WebSocket, one step a call, and records each envelope that it reads. Every wait
// has a timeout. At the timeout a function throws std::runtime_error, unless its result reports the timeout.
class ServerConnection {
 public:
  ServerConnection(int socket, SSL_CTX* context);
  ~ServerConnection();
  ServerConnection(const ServerConnection&) = delete;
  ServerConnection& operator=(const ServerConnection&) = delete;

  // Whether the client sends anything or closes the connection before the timeout. Bytes that it has sent
  // earlier count if they are not read yet.
  [[nodiscard]] bool has_input(Milliseconds timeout = Milliseconds(0)) const;
  // Performs the TLS handshake; returns false when it fails or is not complete at the timeout.
  [[nodiscard]] bool handshake(Milliseconds timeout = kPatience);

  // Reads the client's HTTP request, up to and including its blank line. Throws NotAGetRequest as soon as the
  // bytes are not those of a GET request.
  std::string read_request();
  void send(std::string_view bytes);
  void send(const std::vector<std::uint8_t>& bytes);
  // Reads the request, accepts the upgrade to WebSocket and returns the request. `following` is sent in the
  // same write as the response.
  std::string upgrade(std::string_view following = {});
  // Accepts the upgrade after read_request().
  void accept_upgrade(std::string_view following = {});

  void send_frame(std::uint8_t opcode, std::string_view payload);
  void send_envelope(vlk::Msg type, std::uint32_t session, std::string_view payload, std::uint8_t flags = 1);

  // Reads the next frame.
  vlk::WsFrame read_frame(Milliseconds timeout = kPatience);
  // Reads the next frame, which must hold an envelope.
  vlk::Envelope read_envelope(Milliseconds timeout = kPatience);
  // Reads envelopes until one has this type, and returns it. The envelopes before it are only recorded.
  vlk::Envelope read_until(vlk::Msg type, Milliseconds timeout = kPatience);

  // Sends a heartbeat and reads until its answer arrives. The client has then handled all earlier messages.
  void settle(Milliseconds timeout = kPatience);
  // Whether the client closes the connection before the timeout; what it sends until then is recorded.
  [[nodiscard]] bool wait_closed(Milliseconds timeout = kPatience);

  // Update the keys of both directions, and issue a session ticket, with the next bytes (TLS 1.3). False if
  // the previous ones have not left yet.
  bool update_keys();
  bool issue_ticket();
  void end_sending();  // sends TLS's close_notify; what the client sends can still be read
  void close();        // sends close_notify and closes the socket
  void cut_off();      // closes the socket without close_notify
  void abort();        // resets the TCP connection

  // Whether the client has sent TLS's close_notify. True only after it was read.
  [[nodiscard]] bool client_ended_sending() const;

  const std::vector<vlk::Envelope>& received() const { return received_; }
  void forget_received() { received_.clear(); }  // frees memory in tests that receive hundreds of mebibytes
  std::string server_name() const;               // the name that the client asked for (SNI); may be empty

 private:
  // Reads bytes; returns false at the end of the stream.
  [[nodiscard]] bool fill(std::chrono::steady_clock::time_point deadline);
  [[noreturn]] void time_out() const;

  int socket_;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_;
  std::string text_;  // bytes read before the upgrade
  vlk::WsParser parser_;
  bool upgraded_ = false;
  std::vector<vlk::Envelope> received_;
};

// The payload as text.
std::string text_of(const vlk::Envelope& envelope);

}  // namespace vantelink_test
