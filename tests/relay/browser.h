// A representative's browser, made of Boost.Beast. Its templates take minutes to compile under sanitizers, so
// this header shows none of them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "wire/messages.h"

namespace vlk::relay {

using Json = nlohmann::json;

// A blocking HTTP and WebSocket client that trusts anybody.
class Browser {
 public:
  explicit Browser(unsigned short port);
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

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
  // Sends the bytes and reads nothing of what comes back.
  void send_and_hold(const std::string& bytes);

  // The console's WebSocket; false with the status when it was refused.
  bool open_console(const std::string& cookie, unsigned& status, const std::string& origin = {});
  void send(const Json& message);
  void send_envelope(Msg type, std::uint32_t session, const std::string& payload);
  void send_bytes(const std::string& bytes);
  // The next text message of that type; others are passed over. Throws at the end of the connection.
  Json read_text(const std::string& type);
  Envelope read_envelope(Msg type);
  // How many the relay sent so far, as far as they were read.
  int pings() const;
  // Reads until the relay closes; the close code.
  unsigned wait_closed();

 private:
  struct Wire;
  const std::unique_ptr<Wire> wire_;
};

}  // namespace vlk::relay
