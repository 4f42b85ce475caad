// A representative's browser, based on Boost.Beast. This header includes none of Beast's templates, which
// take minutes to compile under sanitizers.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "wire/messages.h"

namespace vlk::relay {

using Json = nlohmann::json;

// A blocking HTTP and WebSocket client that accepts every certificate.
class Browser {
 public:
  explicit Browser(unsigned short port);
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  struct Answer {
    unsigned status = 0;
    Json body;
    std::string cookie;  // of the log-in, if one was set
    std::string text;
  };
  Answer request(const std::string& method, const std::string& target, const std::string& body = {},
                 const std::string& cookie = {}, const std::string& origin = {});
  // Sends the bytes unchanged and returns all bytes that arrive until the relay closes the connection.
  std::string raw(const std::string& bytes);
  // Sends the bytes and reads no answer.
  void send_and_hold(const std::string& bytes);

  // Opens the console's WebSocket; false with the HTTP status if it was refused.
  bool open_console(const std::string& cookie, unsigned& status, const std::string& origin = {});
  void send(const Json& message);
  void send_envelope(Msg type, std::uint32_t session, const std::string& payload);
  void send_bytes(const std::string& bytes);
  // The next message of that type; others are skipped. Both throw at the end of the connection.
  Json read_text(const std::string& type);
  Envelope read_envelope(Msg type);
  // The number of pings that were read so far.
  int pings() const;
  // Reads until the relay closes the connection; the close code.
  unsigned wait_closed();

 private:
  struct Wire;
  const std::unique_ptr<Wire> wire_;
};

}  // namespace vlk::relay
