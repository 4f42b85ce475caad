// The state of one peer's connection.
#include "relay/net/channel.h"

#include <algorithm>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

}  // namespace

void Channel::send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag) {
  enqueue(queue_, {false, tag, std::move(bytes)});
}

void Channel::send_text(const std::string& text, std::uint32_t tag) {
  enqueue(queue_, {true, tag, std::make_shared<const Bytes>(text.begin(), text.end())});
}

void Channel::send_bulk(std::shared_ptr<const Bytes> bytes, std::uint32_t tag) {
  enqueue(bulk_, {false, tag, std::move(bytes)});
}

bool Channel::has_bulk(std::uint32_t tag) const {
  return std::ranges::any_of(bulk_, [&](const Message& message) { return message.tag == tag; });
}

void Channel::enqueue(Queue& queue, Message message) {
  thread_.check();
  if (closing_) return;
  if (&queue == &queue_) queued_bytes_ += message.bytes->size();
  queue.push_back(std::move(message));
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
  queued_bytes_ -= remove(queue_, tag);
  remove(bulk_, tag);
  changed_.cancel();
}

std::size_t Channel::remove(Queue& queue, std::uint32_t tag) const {
  std::size_t removed = 0;
  std::erase_if(queue, [&](const Message& message) {
    if (message.tag != tag || (message.taken > 0 && !division_.parts)) return false;
    removed += message.left();
    return true;
  });
  return removed;
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
  queue_.clear();
  bulk_.clear();
  queued_bytes_ = 0;
  request();
}

void Channel::end(const std::string& reason) {
  if (!closing_) end_reason_ = reason;
  closing_ = true;
  changed_.cancel();
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

std::optional<Channel::Piece> Channel::take() {
  if (queue_.empty() && bulk_.empty()) return std::nullopt;
  const bool bulk = queue_.empty() || (bulk_is_next_ && !bulk_.empty());
  bulk_is_next_ = !bulk;
  Queue& queue = bulk ? bulk_ : queue_;
  Message& message = queue.front();
  const std::size_t size = std::min(division_.piece_bytes, message.left());
  const bool last = size == message.left();
  Piece piece{message.text, bulk, message.taken == 0, last, message.bytes, message.taken, size};
  message.taken += size;
  if (last) queue.pop_front();
  return piece;
}

void Channel::written(const Piece& piece) {
  if (!piece.bulk) queued_bytes_ -= piece.size;
  last_progress_ = Clock::now();
  if (!full()) changed_.cancel();
}

asio::awaitable<void> Channel::wait_for_change() {
  const auto self = shared_from_this();
  co_await changed_.async_wait(kAsTuple);
}

asio::awaitable<void> Channel::wait_for_room() {
  const auto self = shared_from_this();
  while (full() && !closing_)
    co_await changed_.async_wait(kAsTuple);
}

Clock::duration Channel::write_stall(Clock::time_point now) {
  if (!working_) return Clock::duration::zero();
  if (confirmed_) {
    const std::uint64_t confirmed = confirmed_();
    if (confirmed != std::exchange(last_confirmed_, confirmed)) last_progress_ = now;
  }
  return now - last_progress_;
}

}  // namespace vlk::relay
