// One WebSocket over TLS: reads messages, and carries out the requests that are made to its Channel.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include "relay/net/channel.h"
#include "relay/net/incoming.h"

namespace vlk::relay {

class TlsStream;

// Used on the relay's one thread. Owned by shared pointers; each running coroutine of the link holds one of
// them. This header does not include Boost.Beast's WebSockets, which take a minute to compile.
class WebSocketLink : public std::enable_shared_from_this<WebSocketLink> {
 public:
  struct Settings {
    std::string protocol;                   // the answer's Sec-WebSocket-Protocol
    std::size_t queue_bytes = 0;            // the channel's queue counts as full when it has more
    Channel::Division division;             // how messages are divided for writing
    std::chrono::milliseconds handshake{};  // time limit of the upgrade
  };
  // Completes the upgrade that `request` asks for. Returns null, and puts the reason into `problem`, if that
  // fails.
  [[nodiscard]] static boost::asio::awaitable<std::shared_ptr<WebSocketLink>> accept(
      TlsStream stream, boost::beast::http::request<boost::beast::http::string_body> request,
      Settings settings, std::string& problem);
  // The connection that the link works on. websocket_link.cpp defines it; the fuzz targets define one without
  // a network in its place.
  struct Socket;
  WebSocketLink(std::unique_ptr<Socket> socket, const Settings& settings);
  ~WebSocketLink();
  WebSocketLink(const WebSocketLink&) = delete;
  WebSocketLink& operator=(const WebSocketLink&) = delete;

  [[nodiscard]] const std::shared_ptr<Channel>& channel() const { return channel_; }

  // Reads the next whole message. Returns nothing when the connection has ended; the channel's end_reason()
  // says why.
  [[nodiscard]] boost::asio::awaitable<std::optional<Incoming>> read();
  // Sets the size of the largest message in bytes; a larger one ends the connection. 0 means no limit.
  void set_read_limit(std::size_t bytes);
  // Lets the system's reads get more at once, because the peer is about to send much.
  void expect_much();
  // What becomes of a message that arrives.
  enum class Keep {
    Yes,   // it is kept
    No,    // the rest of it is read and dropped
    Later  // nothing is read for a moment, and the question is asked again
  };
  // Sets a function that decides about a message. It is called with each run of bytes of the message that
  // arrives, until it returns No.
  void on_arrival(std::function<Keep(Incoming&)> keep) { keep_ = std::move(keep); }

 private:
  void carry_out();
  void close_socket();
  void start_deadline(std::chrono::milliseconds deadline);
  void send_ping();
  [[nodiscard]] boost::asio::awaitable<Keep> decide(Incoming& incoming);
  // Returns when the relay's own close of the connection, if it is under way, has ended.
  boost::asio::awaitable<void> closing_done();
  boost::asio::awaitable<void> close_politely(const Channel::CloseRequest& request);
  boost::asio::awaitable<void> drain();
  boost::asio::awaitable<void> write_all();
  // Takes the next pieces from the queue, unless the system has not taken the last ones yet.
  void fill();
  boost::asio::awaitable<bool> write_batch();

  const std::unique_ptr<Socket> socket_;
  std::function<Keep(Incoming&)> keep_;
  const std::shared_ptr<Channel> channel_;
  bool reading_ = false;
  bool writing_ = false;
  bool batch_begun_ = false;  // a batch is being written
  bool pinging_ = false;
  bool socket_closed_ = false;
  bool deadline_started_ = false;
  std::size_t batch_bytes_ = 0;         // the size of the next batch of frames
  boost::asio::steady_timer deadline_;  // the deadline of Channel::close()
};

}  // namespace vlk::relay
