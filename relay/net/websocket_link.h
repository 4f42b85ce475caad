// One WebSocket over TLS with a queue of outgoing messages: the part that agents' and browsers' connections
// share.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>

#include "relay/base/limits.h"

namespace vlk::relay {

using TlsStream = boost::beast::ssl_stream<boost::beast::tcp_stream>;
using Bytes = std::vector<std::uint8_t>;

// Used on the relay's one thread. Kept alive by its shared pointer while a coroutine of it runs.
class WebSocketLink : public std::enable_shared_from_this<WebSocketLink> {
 public:
  using Stream = boost::beast::websocket::stream<TlsStream>;
  struct Incoming {
    bool text = false;
    Bytes bytes;
  };

  // `stream` has been upgraded. Messages over `fragment` bytes are sent in fragments of that size, so that
  // progress can be seen on a slow line. More than `queue_bytes` waiting counts as full.
  WebSocketLink(Stream stream, std::size_t fragment, std::size_t queue_bytes);

  // The next whole message; nothing when the connection is over, for the reason that end_reason() tells.
  boost::asio::awaitable<std::optional<Incoming>> read();
  void set_read_limit(std::size_t bytes) { stream_.read_message_max(bytes); }

  // Queue a message; lost when the link is closing. `tag` lets discard() find it again, 0 is none.
  void send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag = 0);
  void send_text(const std::string& text, std::uint32_t tag = 0);
  // Drops the waiting messages with this tag, except one that is being written.
  void discard(std::uint32_t tag);

  // Sends what waits, then a close frame; after `deadline` at the latest the connection is cut.
  void close(boost::beast::websocket::close_code code, const std::string& reason,
             std::chrono::milliseconds deadline = std::chrono::seconds(2));
  void cut(const std::string& reason);  // at once, without a word
  bool closing() const { return closing_; }
  const std::string& end_reason() const { return end_reason_; }

  bool full() const { return queued_bytes_ > queue_bytes_; }
  // Returns when the queue is no longer full or the link is closing.
  boost::asio::awaitable<void> room();
  // Returns when one of the two may have become true, or when messages were discarded.
  boost::asio::awaitable<void> change();

  // Asks for a sign of life, once until one comes.
  void ping();

  // How long no byte of what waits could be sent; zero when nothing waits.
  Clock::duration write_stall(Clock::time_point now) const;
  Clock::time_point last_heard() const { return last_heard_; }
  void count_as_heard() { last_heard_ = Clock::now(); }

 private:
  struct Outgoing {
    bool text = false;
    std::uint32_t tag = 0;
    std::shared_ptr<const Bytes> bytes;
  };
  void enqueue(Outgoing message);
  void start_writer();
  boost::asio::awaitable<void> write_all();
  boost::asio::awaitable<bool> write_message(const Outgoing& message);
  void end(const std::string& reason);

  Stream stream_;
  const std::size_t fragment_;
  const std::size_t queue_bytes_;
  std::deque<Outgoing> queue_;
  std::size_t queued_bytes_ = 0;
  bool writing_ = false;
  bool closing_ = false;
  bool cut_ = false;
  std::optional<boost::beast::websocket::close_reason> close_reason_;
  std::string end_reason_;
  Clock::time_point last_heard_ = Clock::now();
  Clock::time_point last_progress_ = Clock::now();
  Clock::time_point last_ping_{};
  bool pinging_ = false;                // still being written
  boost::asio::steady_timer room_;      // never expires; cancelled to wake those who wait for room
  boost::asio::steady_timer deadline_;  // of a close
};

}  // namespace vlk::relay
