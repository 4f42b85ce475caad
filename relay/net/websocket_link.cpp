// One WebSocket over TLS: reads messages, and writes the messages in the channel's queue.
#include "relay/net/websocket_link.h"

#include <algorithm>
#include <array>
#include <tuple>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/websocket.hpp>

#include "relay/net/queue/frame_batch.h"
#include "relay/net/tcp/tcp_progress.h"
#include "relay/net/tls/tls_stream.h"
#include "wire/messages.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
// Bytes that are read at once. The buffer for the first of them lies ready while a connection is idle.
constexpr std::size_t kFirstChunk = 512;
constexpr std::size_t kReadChunk = 16 * 1024;  // the content of a TLS record
// Limits of a batch in bytes; one piece may be larger than the first.
constexpr std::size_t kLeastBatch = 16 * 1024;
constexpr std::size_t kMostBatch = 64 * 1024;
constexpr std::size_t kDropChunk = 16 * 1024;
constexpr std::size_t kLongestReason = 123;  // bytes (RFC 6455, 5.5)
constexpr std::chrono::milliseconds kLater{20};
// How long a peer whose message was invalid has to read the close frame.
constexpr std::chrono::milliseconds kDrainLimit{1000};

// A close frame of a server (RFC 6455, 5.5.1).
Bytes close_frame(CloseCode code, const std::string& reason) {
  const std::size_t size = std::min(reason.size(), kLongestReason);
  const auto number = static_cast<std::uint16_t>(code);
  Bytes frame(4 + size);
  frame[0] = 0x88;
  frame[1] = static_cast<std::uint8_t>(2 + size);
  frame[2] = static_cast<std::uint8_t>(number >> 8);
  frame[3] = static_cast<std::uint8_t>(number & 0xFF);
  std::copy_n(reason.begin(), size, frame.begin() + 4);
  return frame;
}

// Messages are read in chunks for two reasons. Each part of a long message on a slow connection shows that
// the peer is connected, and memory grows with the bytes received, not with the length in a frame's header.
//
// Memory that was reserved for the message is used whole.
std::size_t next_chunk(const Incoming& incoming) {
  if (incoming.size == 0) return kFirstChunk;
  if (!incoming.kept) return kDropChunk;
  const std::size_t reserved = incoming.bytes.capacity() - incoming.bytes.size();
  return std::clamp(std::max(2 * incoming.bytes.size(), reserved), kFirstChunk, kReadChunk);
}

// True if Beast has answered the peer's bytes with a close frame that says what is wrong with them.
bool is_invalid(const beast::error_code& error) {
  const beast::error_code closed = websocket::error::closed;
  return error != closed && error.category() == closed.category();
}

}  // namespace

struct WebSocketLink::Socket {
  Socket(TlsStream its_stream, bool parts) : stream(std::move(its_stream)), batch(parts) {}
  [[nodiscard]] TlsStream& tls() { return stream.next_layer(); }

  websocket::stream<TlsStream, false> stream;
  FrameBatch batch;  // is written next, or is being written
};

asio::awaitable<std::shared_ptr<WebSocketLink>> WebSocketLink::accept(
    TlsStream stream, beast::http::request<beast::http::string_body> request, Settings settings,
    std::string& problem) {
  auto socket = std::make_unique<Socket>(std::move(stream), settings.division.parts);
  // The watchdog enforces the time limits after the upgrade.
  socket->stream.set_option(
      websocket::stream_base::timeout{settings.handshake, websocket::stream_base::none(), false});
  socket->stream.set_option(
      websocket::stream_base::decorator([protocol = settings.protocol](websocket::response_type& response) {
        response.set(beast::http::field::sec_websocket_protocol, protocol);
      }));
  const auto [error] = co_await socket->stream.async_accept(request, kAsTuple);
  if (error) {
    problem = error.message();
    co_return nullptr;
  }
  socket->stream.set_option(websocket::stream_base::decorator([](websocket::response_type&) {}));
  socket->stream.set_option(
      websocket::stream_base::timeout{websocket::stream_base::none(), websocket::stream_base::none(), false});
  auto link = std::make_shared<WebSocketLink>(std::move(socket), settings);
  link->channel_->on_request([weak = link->weak_from_this()] {
    if (const auto self = weak.lock()) self->carry_out();
  });
  link->channel_->on_measure([weak = link->weak_from_this()] {
    const auto self = weak.lock();
    return self ? tcp_progress(self->socket_->tls().socket().native_handle()) : TcpProgress{};
  });
  co_return link;
}

WebSocketLink::WebSocketLink(std::unique_ptr<Socket> socket, const Settings& settings)
    : socket_(std::move(socket)),
      channel_(
          std::make_shared<Channel>(socket_->stream.get_executor(), settings.queue_bytes, settings.division)),
      batch_bytes_(kLeastBatch),
      deadline_(socket_->stream.get_executor()) {
  socket_->stream.auto_fragment(false);
  socket_->stream.control_callback([this](auto, auto) { channel_->count_as_heard(Clock::now()); });
}

WebSocketLink::~WebSocketLink() = default;

void WebSocketLink::set_read_limit(std::size_t bytes) {
  socket_->stream.read_message_max(bytes);
}

void WebSocketLink::expect_much() {
  socket_->tls().expect_much();
}

asio::awaitable<std::optional<Incoming>> WebSocketLink::read() {
  const auto self = shared_from_this();
  auto& stream = socket_->stream;
  Incoming incoming;
  Bytes dropped;
  do {
    if (channel_->closing()) {
      co_await closing_done();
      co_return std::nullopt;
    }
    dropped.clear();
    auto buffer = asio::dynamic_buffer(incoming.kept ? incoming.bytes : dropped);
    reading_ = true;
    const auto [error, size] = co_await stream.async_read_some(buffer, next_chunk(incoming), kAsTuple);
    reading_ = false;
    if (error) {
      const bool own_close = channel_->closing();
      channel_->end(error == websocket::error::closed ? "closed by the peer" : error.message());
      if (!own_close && is_invalid(error)) co_await drain();
      co_await closing_done();
      co_return std::nullopt;
    }
    channel_->count_as_heard(Clock::now());
    incoming.size += size;
    incoming.text = stream.got_text();
    if (!incoming.kept || !keep_ || co_await decide(incoming) == Keep::Yes) continue;
    incoming.kept = false;
    incoming.bytes.resize(std::min(incoming.bytes.size(), kEnvelopeHeaderSize));
    incoming.bytes.shrink_to_fit();
  } while (!stream.is_message_done());
  channel_->count_arrived(incoming);
  co_return incoming;
}

// While the answer is Later, the peer is not read from, and does not count as silent.
asio::awaitable<WebSocketLink::Keep> WebSocketLink::decide(Incoming& incoming) {
  for (;;) {
    const Keep answer = keep_(incoming);
    if (answer != Keep::Later) co_return answer;
    if (channel_->closing()) co_return Keep::No;
    asio::steady_timer pause(socket_->stream.get_executor(), kLater);
    co_await pause.async_wait(kAsTuple);
    channel_->count_as_heard(Clock::now());
  }
}

asio::awaitable<void> WebSocketLink::closing_done() {
  while (channel_->close_request() && !channel_->is_cut())
    co_await channel_->wait_for_change();
}

void WebSocketLink::carry_out() {
  if (channel_->is_cut()) return close_socket();
  if (channel_->close_request()) start_deadline(channel_->close_request()->deadline);
  if (channel_->ping_requested()) send_ping();
  if (!channel_->has_work()) return;
  fill();
  if (writing_) return;
  writing_ = true;
  asio::co_spawn(
      socket_->stream.get_executor(), [self = shared_from_this()] { return self->write_all(); },
      asio::detached);
}

void WebSocketLink::close_socket() {
  if (socket_closed_) return;
  socket_closed_ = true;
  deadline_.cancel();
  socket_->tls().close();
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
  socket_->stream.async_ping({}, [self = shared_from_this()](beast::error_code) {
    self->pinging_ = false;
    self->channel_->ping_sent();
  });
}

asio::awaitable<void> WebSocketLink::write_all() {
  const auto self = shared_from_this();
  // What is sent next in this step of the relay is written together with what is sent now.
  co_await asio::post(socket_->tls().get_executor(), asio::use_awaitable);
  bool good = true;
  fill();
  while (good && !socket_->batch.empty()) {
    good = co_await write_batch();
    fill();
    // A long queue does not hold the executor.
    if (good && !socket_->batch.empty())
      co_await asio::post(socket_->tls().get_executor(), asio::use_awaitable);
  }
  if (good && channel_->close_request() && !channel_->is_cut()) {
    co_await close_politely(*channel_->close_request());
    channel_->cut(channel_->end_reason());
  }
  writing_ = false;
  channel_->finished_work();
}

// Messages leave the queue as soon as nothing is being written, so those that are sent one after the other in
// one step of the relay are written together, and none of them seems to wait for a slow peer. While the
// system does not take a batch, they stay in the queue, and what is urgent overtakes the others.
void WebSocketLink::fill() {
  FrameBatch& batch = socket_->batch;
  if (batch_begun_ || channel_->is_cut()) return;
  while (batch.empty() || batch.bytes() + channel_->next_size() <= batch_bytes_) {
    auto piece = channel_->take();
    if (!piece) return;
    batch.add(std::move(*piece));
  }
}

// The frames do not pass through Beast, which writes only control frames of its own; TlsStream sends each
// write whole. Only a system that takes everything at once gets large batches.
asio::awaitable<bool> WebSocketLink::write_batch() {
  TlsStream& tls = socket_->tls();
  batch_begun_ = true;
  // Beast sends nothing after a close frame either.
  beast::error_code error = asio::error::operation_aborted;
  if (socket_->stream.is_open()) error = tls.write(socket_->batch.buffers());
  batch_bytes_ = tls.all_sent() ? std::min(2 * batch_bytes_, kMostBatch) : kLeastBatch;
  if (!error && !tls.all_sent()) std::tie(error) = co_await tls.async_sent(kAsTuple);
  if (error) channel_->cut("writing failed: " + error.message());
  const FrameBatch done = std::exchange(socket_->batch, FrameBatch(channel_->divides_into_parts()));
  batch_begun_ = false;
  if (channel_->is_cut()) co_return false;
  done.each([this](const Channel::Piece& piece) { channel_->written(piece); });
  co_return true;
}

// Sends the close frame and waits until the peer closes the connection. Beast's own close operation cannot be
// used: it waits until the reading ends, and a reading that finds the peer's close frame among bytes that
// have arrived already waits until the close operation ends.
asio::awaitable<void> WebSocketLink::close_politely(const Channel::CloseRequest& request) {
  TlsStream& tls = socket_->tls();
  while (reading_ && !channel_->is_cut()) {
    tls.socket().cancel();
    co_await asio::post(tls.get_executor(), asio::use_awaitable);
  }
  if (channel_->is_cut()) co_return;
  const Bytes frame = close_frame(request.code, request.reason);
  const auto [error, count] = co_await asio::async_write(tls, asio::buffer(frame), kAsTuple);
  if (error || channel_->is_cut()) co_return;
  co_await drain();
}

// Ends the sending, and reads until the peer has closed the connection or the time limit is over. A socket
// that is closed while it has unread bytes makes the system discard the close frame at the peer.
asio::awaitable<void> WebSocketLink::drain() {
  TlsStream& tls = socket_->tls();
  start_deadline(kDrainLimit);
  tls.finish();
  std::array<char, 512> unread{};
  beast::error_code error;
  std::size_t count = 0;
  while (!error && !channel_->is_cut())
    std::tie(error, count) = co_await tls.socket().async_read_some(asio::buffer(unread), kAsTuple);
}

}  // namespace vlk::relay
