// The state of one peer's connection.
#include "relay/net/channel.h"

#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

}  // namespace

void Channel::send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag, Lane lane) {
  enqueue(lane, {.tag = tag, .bytes = std::move(bytes)});
}

void Channel::send_text(const std::string& text, std::uint32_t tag) {
  send_text(std::make_shared<const Bytes>(text.begin(), text.end()), tag, Lane::Urgent);
}

void Channel::send_text(std::shared_ptr<const Bytes> text, std::uint32_t tag, Lane lane) {
  enqueue(lane, {.text = true, .tag = tag, .bytes = std::move(text)});
}

void Channel::send_large(std::shared_ptr<const Bytes> bytes, std::uint32_t tag) {
  enqueue(Lane::Bulk, {.tag = tag, .bytes = std::move(bytes), .large = true});
}

bool Channel::send_picture(std::shared_ptr<const Bytes> bytes, std::uint32_t tag, PictureKind kind,
                           const std::optional<OutgoingHeader>& header) {
  thread_.check();
  if (closing_) return true;
  OutgoingMessage picture{.tag = tag, .bytes = std::move(bytes), .header = header, .kind = kind};
  if (!outbox_.add_picture(std::move(picture), Clock::now())) return false;
  sent();
  return true;
}

void Channel::enqueue(Lane lane, OutgoingMessage message) {
  thread_.check();
  if (closing_) return;
  outbox_.add(lane, std::move(message));
  sent();
}

void Channel::sent() {
  last_sent_ = Clock::now();
  begin_work();
  request();
}

void Channel::begin_work() {
  if (working_) return;
  working_ = true;
  last_progress_ = Clock::now();
}

void Channel::discard(std::uint32_t tag) {
  thread_.check();
  outbox_.remove(tag);
  changed_.cancel();
}

void Channel::discard_bulk(std::uint32_t tag, const std::function<bool(const Bytes&)>& unwanted) {
  thread_.check();
  outbox_.remove_bulk(tag, unwanted);
  changed_.cancel();
}

void Channel::promote_bulk(std::uint32_t tag) {
  thread_.check();
  outbox_.promote_bulk(tag);
}

void Channel::close(CloseCode code, const std::string& reason, std::chrono::milliseconds deadline) {
  thread_.check();
  if (closing_) return;
  end(reason);
  close_request_ = {code, reason, deadline};
  begin_work();
  request();
}

void Channel::cut(const std::string& reason) {
  thread_.check();
  end(reason);
  if (cut_) return;
  cut_ = true;
  outbox_.clear();
  request();
}

void Channel::end(const std::string& reason) {
  if (!closing_) end_reason_ = reason;
  closing_ = true;
  changed_.cancel();
  if (ended_) ended_();
}

void Channel::ping(Clock::time_point now) {
  thread_.check();
  if (closing_ || ping_requested_ || last_ping_ > last_heard_) return;
  last_ping_ = now;
  ping_requested_ = true;
  request();
}

void Channel::request() {
  if (act_) act_();
}

void Channel::written(const Piece& piece) {
  last_progress_ = Clock::now();
  outbox_.written(piece, last_progress_);
  if (!full() || !full_without_bulk()) changed_.cancel();
  if (piece.lane == Lane::Bulk && piece.last && bulk_written_) bulk_written_(piece);
}

void Channel::count_arrived(const Incoming& incoming) const {
  if (!traffic_) return;
  const auto header = incoming.text ? std::nullopt : read_header(incoming.bytes);
  Traffic::Flow& flow = header && header->type == Msg::StreamFrame ? traffic_->in.pictures
                        : header && header->type == Msg::FileChunk ? traffic_->in.bulk
                                                                   : traffic_->in.others;
  ++flow.messages;
  flow.bytes += incoming.size;
}

asio::awaitable<void> Channel::wait_for_change() {
  const auto self = shared_from_this();
  co_await changed_.async_wait(kAsTuple);
}

asio::awaitable<void> Channel::wait_for_room() {
  const auto self = shared_from_this();
  while (full_without_bulk() && !closing_)
    co_await changed_.async_wait(kAsTuple);
}

Clock::duration Channel::write_stall(Clock::time_point now) {
  if (!working_) return Clock::duration::zero();
  if (measure_) {
    const std::uint64_t confirmed = measure_().confirmed;
    if (confirmed != std::exchange(last_confirmed_, confirmed)) last_progress_ = now;
  }
  return now - last_progress_;
}

Clock::duration Channel::line_stall(Clock::time_point now) {
  if (!measure_) return Clock::duration::zero();
  const TcpProgress progress = measure_();
  const std::uint64_t before = std::exchange(line_confirmed_, progress.confirmed);
  if (!progress.unconfirmed || progress.confirmed != before) line_progress_ = now;
  return now - line_progress_;
}

}  // namespace vlk::relay
