// One WebSocket over TLS with a queue of outgoing messages.
#include "relay/net/websocket_link.h"

#include <algorithm>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t kReadChunk = 64 * 1024;

}  // namespace

WebSocketLink::WebSocketLink(Stream stream, std::size_t fragment, std::size_t queue_bytes)
    : stream_(std::move(stream)),
      fragment_(fragment),
      queue_bytes_(queue_bytes),
      room_(stream_.get_executor(), Clock::time_point::max()),
      deadline_(stream_.get_executor()) {
  stream_.auto_fragment(false);
  stream_.control_callback([this](auto, auto) { count_as_heard(); });
}

asio::awaitable<std::optional<WebSocketLink::Incoming>> WebSocketLink::read() {
  const auto self = shared_from_this();
  Incoming incoming;
  do {
    // Read in pieces, so that a long message on a slow line counts as a sign of life, and so that memory
    // follows what arrived and not what a frame's header promises.
    auto buffer = asio::dynamic_buffer(incoming.bytes);
    const auto [error, size] = co_await stream_.async_read_some(buffer, kReadChunk, kAsTuple);
    if (error) {
      end(error == websocket::error::closed ? "closed by the peer" : error.message());
      co_return std::nullopt;
    }
    last_heard_ = Clock::now();
  } while (!stream_.is_message_done());
  incoming.text = stream_.got_text();
  co_return incoming;
}

void WebSocketLink::send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag) {
  enqueue({false, tag, std::move(bytes)});
}

void WebSocketLink::send_text(const std::string& text, std::uint32_t tag) {
  enqueue({true, tag, std::make_shared<const Bytes>(text.begin(), text.end())});
}

void WebSocketLink::enqueue(Outgoing message) {
  if (closing_) return;
  queued_bytes_ += message.bytes->size();
  queue_.push_back(std::move(message));
  start_writer();
}

void WebSocketLink::discard(std::uint32_t tag) {
  std::erase_if(queue_, [&](const Outgoing& message) {
    if (message.tag != tag) return false;
    queued_bytes_ -= message.bytes->size();
    return true;
  });
  room_.cancel();
}

void WebSocketLink::start_writer() {
  if (writing_) return;
  writing_ = true;
  last_progress_ = Clock::now();
  asio::co_spawn(
      stream_.get_executor(), [self = shared_from_this()] { return self->write_all(); }, asio::detached);
}

asio::awaitable<void> WebSocketLink::write_all() {
  const auto self = shared_from_this();
  while (!queue_.empty()) {
    const Outgoing message = std::move(queue_.front());
    queue_.pop_front();
    if (!co_await write_message(message)) {
      writing_ = false;
      co_return;
    }
  }
  if (close_reason_ && !cut_) {
    co_await stream_.async_close(*close_reason_, kAsTuple);
    cut(end_reason_);
  }
  writing_ = false;
}

asio::awaitable<bool> WebSocketLink::write_message(const Outgoing& message) {
  stream_.text(message.text);
  const std::size_t size = message.bytes->size();
  std::size_t offset = 0;
  do {
    const std::size_t part = std::min(fragment_, size - offset);
    const bool last = offset + part == size;
    const auto [error, written] =
        co_await stream_.async_write_some(last, asio::buffer(message.bytes->data() + offset, part), kAsTuple);
    if (error) cut("writing failed: " + error.message());
    if (cut_) co_return false;
    offset += part;
    queued_bytes_ -= part;
    last_progress_ = Clock::now();
    if (!full()) room_.cancel();
  } while (offset < size);
  co_return true;
}

void WebSocketLink::close(websocket::close_code code, const std::string& reason,
                          std::chrono::milliseconds deadline) {
  if (closing_) return;
  end(reason);
  close_reason_.emplace(code, reason);
  deadline_.expires_after(deadline);
  deadline_.async_wait([weak = weak_from_this()](beast::error_code error) {
    const auto self = weak.lock();
    if (!error && self) self->cut(self->end_reason_);
  });
  start_writer();
}

void WebSocketLink::ping() {
  if (closing_ || pinging_ || last_ping_ > last_heard_) return;
  last_ping_ = Clock::now();
  pinging_ = true;
  stream_.async_ping({}, [self = shared_from_this()](beast::error_code) { self->pinging_ = false; });
}

void WebSocketLink::cut(const std::string& reason) {
  end(reason);
  if (cut_) return;
  cut_ = true;
  deadline_.cancel();
  queue_.clear();
  queued_bytes_ = 0;
  beast::get_lowest_layer(stream_).close();
}

void WebSocketLink::end(const std::string& reason) {
  if (!closing_) end_reason_ = reason;
  closing_ = true;
  room_.cancel();
}

asio::awaitable<void> WebSocketLink::change() {
  const auto self = shared_from_this();
  co_await room_.async_wait(kAsTuple);
}

asio::awaitable<void> WebSocketLink::room() {
  const auto self = shared_from_this();
  while (full() && !closing_)
    co_await room_.async_wait(kAsTuple);
}

Clock::duration WebSocketLink::write_stall(Clock::time_point now) const {
  return writing_ ? now - last_progress_ : Clock::duration::zero();
}

}  // namespace vlk::relay
