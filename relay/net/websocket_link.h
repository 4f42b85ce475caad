// One WebSocket over TLS: reads messages, and carries out what its Channel was asked to do.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "relay/base/bytes.h"
#include "relay/net/channel.h"

namespace vlk::relay {

using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;

// Used on the relay's one thread. Held by shared pointers; one is kept while a coroutine of the link runs.
class WebSocketLink : public std::enable_shared_from_this<WebSocketLink> {
 public:
  using Stream = boost::beast::websocket::stream<TlsStream>;
  struct Incoming {
    bool text = false;
    Bytes bytes;
  };

  // `stream` has completed its upgrade. Messages over `fragment` bytes are sent in fragments of that size, so
  // that progress is visible on a slow connection. More than `queue_bytes` bytes in the channel's queue count
  // as full.
  [[nodiscard]] static std::shared_ptr<WebSocketLink> create(Stream stream, std::size_t fragment,
                                                             std::size_t queue_bytes);

  [[nodiscard]] const std::shared_ptr<Channel>& channel() const { return channel_; }

  // The next whole message; nothing when the connection is over, for the reason in the channel's
  // end_reason().
  [[nodiscard]] boost::asio::awaitable<std::optional<Incoming>> read();
  void set_read_limit(std::size_t bytes) { stream_.read_message_max(bytes); }

 private:
  WebSocketLink(Stream stream, std::size_t fragment, std::size_t queue_bytes);
  void carry_out();
  void close_socket();
  void start_deadline(std::chrono::milliseconds deadline);
  void send_ping();
  boost::asio::awaitable<void> write_all();
  boost::asio::awaitable<bool> write_message(const Channel::Outgoing& message);

  Stream stream_;
  const std::size_t fragment_;
  const std::shared_ptr<Channel> channel_;
  bool writing_ = false;
  bool pinging_ = false;
  bool socket_closed_ = false;
  bool deadline_started_ = false;
  boost::asio::steady_timer deadline_;  // of a close
};

}  // namespace vlk::relay
