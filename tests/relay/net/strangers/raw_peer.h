// A peer that goes as far as a test wants: to the TCP connection, the handshake, the request or the upgrade.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "wire/messages.h"
#include "wire/websocket.h"

namespace vlk::relay {

// Uses blocking sockets and accepts any certificate. Functions that connect or read throw std::runtime_error
// when the relay has closed the connection; functions that send ignore this.
class RawPeer {
 public:
  // Connects from the loopback address `from`, to the relay's IPv6 address if `from` is one.
  explicit RawPeer(unsigned short port, const std::string& from = "127.0.0.1");
  ~RawPeer();
  RawPeer(const RawPeer&) = delete;
  RawPeer& operator=(const RawPeer&) = delete;

  static std::string half_hello();  // the first half of a TLS handshake's first message
  bool send_plain(const std::string& bytes);
  void start_tls();
  // Upgrades to an agent's WebSocket, or to that of another path with further lines in the request's header.
  void upgrade(const std::string& target = "/link", const std::string& header_lines = {});
  // Sends an HTTP request with further lines in its header, and reads the answer. Returns its status; 0 if
  // the relay has closed the connection.
  unsigned request(const std::string& method, const std::string& target, const std::string& body = {},
                   const std::string& header_lines = {});
  // Sends bytes by TLS or, before start_tls(), as they are.
  void send(const std::string& bytes) { (void)try_send(bytes); }
  // Returns false if the bytes were not sent; at the end of a wait that was limited, the call may be repeated
  // with the same bytes.
  [[nodiscard]] bool try_send(const std::string& bytes);
  [[nodiscard]] static std::string frame(std::uint8_t opcode, const std::string& content);
  // A frame with an envelope.
  [[nodiscard]] static std::string message_frame(Msg type, std::uint32_t session, const std::string& json);
  void send_message(Msg type, std::uint32_t session, const std::string& json);
  // Reads up to a message of the type, and returns its content.
  std::string read_message(Msg type);
  // Reads the next message, or part of one, or control frame.
  [[nodiscard]] WsFrame read_frame();
  // Reads up to a text with this part.
  void read_text(const std::string& part);
  // Reads some bytes as they are, at most so many, and returns their number.
  [[nodiscard]] std::size_t read_bytes(std::size_t most);
  [[nodiscard]] std::uint32_t last_session() const { return session_; }
  // Lets each read and write give up after this time.
  void limit_waits(std::chrono::milliseconds limit);
  // Whether the relay has closed the connection; reads what has arrived, and waits for more.
  [[nodiscard]] bool ended();
  void close();
  void reset();       // as when the peer's system has failed
  void half_close();  // closes only the sending direction
  // The connection after start_tls(), and what has arrived and was not read yet.
  [[nodiscard]] SSL* tls() const { return ssl_.get(); }
  [[nodiscard]] WsParser& parser() { return parser_; }
  void finish();  // sends what ends the TLS connection, and keeps the TCP connection open

 private:
  int read_some(unsigned char* bytes, int size);
  // Reads an HTTP header up to its empty line. Returns what has arrived if the relay closes the connection.
  std::string read_header();

  int socket_ = -1;
  std::unique_ptr<SSL, decltype(&SSL_free)> ssl_{nullptr, &SSL_free};
  WsParser parser_;
  std::uint32_t session_ = 0;
};

}  // namespace vlk::relay
