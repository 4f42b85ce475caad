// One WebSocket over TLS: reads messages, and writes the messages in the channel's queue.
#include "relay/net/websocket_link.h"

#include <algorithm>
#include <array>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/net/tcp_progress.h"
#include "relay/wire/part.h"
#include "wire/messages.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t kReadChunk = 64 * 1024;  // bytes

}  // namespace

std::shared_ptr<WebSocketLink> WebSocketLink::create(Stream stream, std::size_t queue_bytes,
                                                     Channel::Division division) {
  std::shared_ptr<WebSocketLink> link(new WebSocketLink(std::move(stream), queue_bytes, division));
  link->channel_->on_request([weak = link->weak_from_this()] {
    if (const auto self = weak.lock()) self->carry_out();
  });
  link->channel_->on_measure([weak = link->weak_from_this()] {
    const auto self = weak.lock();
    return self ? confirmed_bytes(beast::get_lowest_layer(self->stream_).socket().native_handle()) : 0;
  });
  return link;
}

WebSocketLink::WebSocketLink(Stream stream, std::size_t queue_bytes, Channel::Division division)
    : stream_(std::move(stream)),
      channel_(std::make_shared<Channel>(stream_.get_executor(), queue_bytes, division)),
      deadline_(stream_.get_executor()) {
  stream_.auto_fragment(false);
  stream_.control_callback([this](auto, auto) { channel_->count_as_heard(Clock::now()); });
}

asio::awaitable<std::optional<Incoming>> WebSocketLink::read() {
  const auto self = shared_from_this();
  Incoming incoming;
  Bytes dropped;
  do {
    // Messages are read in chunks for two reasons. Each part of a long message on a slow connection shows
    // that the peer is connected, and memory grows with the bytes received, not with the length in a frame's
    // header.
    dropped.clear();
    auto buffer = asio::dynamic_buffer(incoming.kept ? incoming.bytes : dropped);
    const auto [error, size] = co_await stream_.async_read_some(buffer, kReadChunk, kAsTuple);
    if (error) {
      channel_->end(error == websocket::error::closed ? "closed by the peer" : error.message());
      co_return std::nullopt;
    }
    channel_->count_as_heard(Clock::now());
    incoming.size += size;
    incoming.text = stream_.got_text();
    if (!incoming.kept || !keep_ || keep_(incoming)) continue;
    incoming.kept = false;
    incoming.bytes.resize(std::min(incoming.bytes.size(), kEnvelopeHeaderSize));
    incoming.bytes.shrink_to_fit();
  } while (!stream_.is_message_done());
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
    const auto piece = channel_->take();
    if (!piece) break;
    good = co_await write_piece(*piece);
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

asio::awaitable<bool> WebSocketLink::write_piece(const Channel::Piece& piece) {
  const bool whole = piece.first && piece.last;
  const bool part = channel_->divides_into_parts() && !whole;
  if (piece.first || part) stream_.text(piece.text && !part);
  const auto header = part_header(piece.first, piece.last, piece.bulk, piece.text);
  const std::array<asio::const_buffer, 2> buffers = {
      asio::buffer(header.data(), part ? header.size() : 0),
      asio::buffer(piece.bytes().data(), piece.size),
  };
  const auto [error, written] = co_await stream_.async_write_some(piece.last || part, buffers, kAsTuple);
  if (error) channel_->cut("writing failed: " + error.message());
  if (channel_->is_cut()) co_return false;
  channel_->written(piece);
  co_return true;
}

}  // namespace vlk::relay
