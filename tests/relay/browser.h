// A client that acts as a representative's browser, based on Boost.Beast. This header does not include Beast,
// whose templates take minutes to compile under sanitizers.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "wire/messages.h"

namespace vlk::relay {

using Json = nlohmann::json;

// A blocking HTTP and WebSocket client that accepts every certificate.
class Browser {
 public:
  // A receive buffer of a few kilobytes makes the relay notice early that this browser reads slowly. 0 leaves
  // the size to the system.
  explicit Browser(unsigned short port, int receive_buffer = 0);
  ~Browser();
  Browser(const Browser&) = delete;
  Browser& operator=(const Browser&) = delete;

  struct Answer {
    unsigned status = 0;
    Json body;
    std::string cookie;  // the log-in's token, if the answer sets a cookie
    std::string text;    // the body unparsed
  };
  // `origin` is the origin of the page that makes the request; empty means the console's page.
  Answer request(const std::string& method, const std::string& target, const std::string& body = {},
                 const std::string& cookie = {}, const std::string& origin = {});
  // Sends the bytes unchanged and returns all bytes that arrive until the relay closes the connection.
  std::string raw(const std::string& bytes);
  // Sends the bytes, keeps the connection open and does not read the answer.
  void send_and_hold(const std::string& bytes);

  // Opens the console's WebSocket. Returns false if it was refused. `status` receives the HTTP status.
  // `origin` is as in request().
  bool open_console(const std::string& cookie, unsigned& status, const std::string& origin = {});
  void send(const Json& message);
  void send_envelope(Msg type, std::uint32_t session, const std::string& payload);
  void send_bytes(const std::string& bytes);
  // Sends binary messages while it passes on the code and the payload of each envelope that arrives. Returns
  // when the relay has handled all of the messages.
  void send_while_reading(const std::vector<std::string>& messages,
                          const std::function<void(Msg, const std::string&)>& received);
  // Requests a session with the machine, and returns the session's number once it is accepted.
  std::uint32_t open_session(const std::string& agent);
  // Waits until a session is accepted, and returns its number.
  std::uint32_t accepted_session();
  // Return the next message of the given type and skip other messages. Both throw if the connection ends.
  Json read_text(const std::string& type);
  Envelope read_envelope(Msg type);
  // Skips messages up to the next one with the list of machines or its changes, and returns the list after
  // it. Throws if the connection ends or a version is missing.
  Json read_machines();
  // Reads the next message, of any size.
  struct Message {
    bool text = false;
    std::string bytes;
  };
  Message read_message();
  // Reads the next binary message, of any size. Returns its header's code, and the size of the whole message.
  struct Arrived {
    Msg type{};
    std::size_t size = 0;
  };
  Arrived read_binary();
  // Reads one WebSocket message: a whole message or a part of one. Returns false if the connection has ended.
  bool read_piece();
  // The number of WebSocket pings received so far.
  int pings() const;
  // Reads until the relay closes the connection, and returns the close code.
  unsigned wait_closed();

 private:
  struct Wire;
  const std::unique_ptr<Wire> wire_;
};

}  // namespace vlk::relay
