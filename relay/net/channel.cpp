// The state of one peer's connection.
#include "relay/net/channel.h"

#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

}  // namespace

void Channel::send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag) {
  enqueue({false, tag, std::move(bytes)});
}

void Channel::send_text(const std::string& text, std::uint32_t tag) {
  enqueue({true, tag, std::make_shared<const Bytes>(text.begin(), text.end())});
}

void Channel::enqueue(Outgoing message) {
  thread_.check();
  if (closing_) return;
  queued_bytes_ += message.bytes->size();
  queue_.push_back(std::move(message));
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
  std::erase_if(queue_, [&](const Outgoing& message) {
    if (message.tag != tag) return false;
    queued_bytes_ -= message.bytes->size();
    return true;
  });
  changed_.cancel();
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

std::optional<Channel::Outgoing> Channel::take() {
  if (queue_.empty()) return std::nullopt;
  Outgoing message = std::move(queue_.front());
  queue_.pop_front();
  return message;
}

void Channel::written(std::size_t bytes) {
  queued_bytes_ -= bytes;
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

Clock::duration Channel::write_stall(Clock::time_point now) const {
  return working_ ? now - last_progress_ : Clock::duration::zero();
}

}  // namespace vlk::relay
