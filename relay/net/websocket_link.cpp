// One WebSocket over TLS: reads messages, and writes the messages in the channel's queue.
#include "relay/net/websocket_link.h"

#include <algorithm>
#include <utility>

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
constexpr std::size_t kReadChunk = 64 * 1024;  // bytes

}  // namespace

std::shared_ptr<WebSocketLink> WebSocketLink::create(Stream stream, std::size_t fragment,
                                                     std::size_t queue_bytes) {
  std::shared_ptr<WebSocketLink> link(new WebSocketLink(std::move(stream), fragment, queue_bytes));
  link->channel_->on_request([weak = link->weak_from_this()] {
    if (const auto self = weak.lock()) self->carry_out();
  });
  return link;
}

WebSocketLink::WebSocketLink(Stream stream, std::size_t fragment, std::size_t queue_bytes)
    : stream_(std::move(stream)),
      fragment_(fragment),
      channel_(std::make_shared<Channel>(stream_.get_executor(), queue_bytes)),
      deadline_(stream_.get_executor()) {
  stream_.auto_fragment(false);
  stream_.control_callback([this](auto, auto) { channel_->count_as_heard(Clock::now()); });
}

asio::awaitable<std::optional<WebSocketLink::Incoming>> WebSocketLink::read() {
  const auto self = shared_from_this();
  Incoming incoming;
  do {
    // Messages are read in chunks for two reasons. Each part of a long message on a slow connection shows
    // that the peer is connected, and memory grows with the bytes received, not with the length in a frame's
    // header.
    auto buffer = asio::dynamic_buffer(incoming.bytes);
    const auto [error, size] = co_await stream_.async_read_some(buffer, kReadChunk, kAsTuple);
    if (error) {
      channel_->end(error == websocket::error::closed ? "closed by the peer" : error.message());
      co_return std::nullopt;
    }
    channel_->count_as_heard(Clock::now());
  } while (!stream_.is_message_done());
  incoming.text = stream_.got_text();
  co_return incoming;
}

void WebSocketLink::carry_out() {
  if (channel_->is_cut()) return close_socket();
  if (channel_->close_request()) start_deadline(channel_->close_request()->deadline);
  if (channel_->ping_requested()) send_ping();
  if (!channel_->has_work() || writing_) return;
  writing_ = true;
  asio::co_spawn(
      stream_.get_executor(), [self = shared_from_this()] { return self->write_all(); }, asio::detached);
}

void WebSocketLink::close_socket() {
  if (socket_closed_) return;
  socket_closed_ = true;
  deadline_.cancel();
  beast::get_lowest_layer(stream_).close();
}

void WebSocketLink::start_deadline(std::chrono::milliseconds deadline) {
  if (deadline_started_) return;
  deadline_started_ = true;
  deadline_.expires_after(deadline);
  deadline_.async_wait([weak = weak_from_this()](beast::error_code error) {
    const auto self = weak.lock();
    if (!error && self) self->channel_->cut(self->channel_->end_reason());
  });
}

void WebSocketLink::send_ping() {
  if (pinging_) return;
  pinging_ = true;
  stream_.async_ping({}, [self = shared_from_this()](beast::error_code) {
    self->pinging_ = false;
    self->channel_->ping_sent();
  });
}

asio::awaitable<void> WebSocketLink::write_all() {
  const auto self = shared_from_this();
  bool good = true;
  while (good) {
    const auto message = channel_->take();
    if (!message) break;
    good = co_await write_message(*message);
  }
  if (good && channel_->close_request() && !channel_->is_cut()) {
    const auto& request = *channel_->close_request();
    const websocket::close_reason reason(static_cast<websocket::close_code>(request.code), request.reason);
    co_await stream_.async_close(reason, kAsTuple);
    channel_->cut(channel_->end_reason());
  }
  writing_ = false;
  channel_->finished_work();
}

asio::awaitable<bool> WebSocketLink::write_message(const Channel::Outgoing& message) {
  stream_.text(message.text);
  const std::size_t size = message.bytes->size();
  std::size_t offset = 0;
  do {
    const std::size_t part = std::min(fragment_, size - offset);
    const bool last = offset + part == size;
    const auto [error, written] =
        co_await stream_.async_write_some(last, asio::buffer(message.bytes->data() + offset, part), kAsTuple);
    if (error) channel_->cut("writing failed: " + error.message());
    if (channel_->is_cut()) co_return false;
    offset += part;
    channel_->written(part);
  } while (offset < size);
  co_return true;
}

}  // namespace vlk::relay
