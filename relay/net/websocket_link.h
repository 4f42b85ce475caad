// One WebSocket over TLS: reads messages, and carries out the requests that are made to its Channel.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "relay/net/channel.h"
#include "relay/net/incoming.h"

namespace vlk::relay {

using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

// Used on the relay's one thread. Owned by shared pointers; each running coroutine of the link holds one of
// them.
class WebSocketLink : public std::enable_shared_from_this<WebSocketLink> {
 public:
  using Stream = boost::beast::websocket::stream<TlsStream>;

  // `stream` has completed its upgrade. The channel's queue counts as full when it has more than
  // `queue_bytes` bytes; its messages are written in pieces, as `division` says.
  [[nodiscard]] static std::shared_ptr<WebSocketLink> create(Stream stream, std::size_t queue_bytes,
                                                             Channel::Division division);

  [[nodiscard]] const std::shared_ptr<Channel>& channel() const { return channel_; }

  // Reads the next whole message. Returns nothing when the connection has ended; the channel's end_reason()
  // says why.
  [[nodiscard]] boost::asio::awaitable<std::optional<Incoming>> read();
  // Sets the size of the largest message in bytes; a larger one ends the connection. 0 means no limit.
  void set_read_limit(std::size_t bytes) { stream_.read_message_max(bytes); }
  // Sets a function that decides whether a message is kept. It is called with each run of bytes of a message
  // that arrives, until it returns false. The rest of the message is then read and dropped.
  void on_arrival(std::function<bool(Incoming&)> keep) { keep_ = std::move(keep); }

 private:
  WebSocketLink(Stream stream, std::size_t queue_bytes, Channel::Division division);
  void carry_out();
  void close_socket();
  void start_deadline(std::chrono::milliseconds deadline);
  void send_ping();
  boost::asio::awaitable<void> write_all();
  boost::asio::awaitable<bool> write_piece(const Channel::Piece& piece);

  Stream stream_;
  std::function<bool(Incoming&)> keep_;
  const std::shared_ptr<Channel> channel_;
  bool writing_ = false;
  bool pinging_ = false;
  bool socket_closed_ = false;
  bool deadline_started_ = false;
  boost::asio::steady_timer deadline_;  // the deadline of Channel::close()
};

}  // namespace vlk::relay
