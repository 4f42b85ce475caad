// A peer's connection as the relay's other parts use it: the queue of outgoing messages, the end of the
// connection, and when the peer was last heard.
//
// A Channel does no input or output. A WebSocketLink carries out what is asked of it here; tests read the
// queue.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/base/thread_checker.h"

namespace vlk::relay {

// WebSocket close codes (RFC 6455, 7.4.1) that the relay sends.
enum class CloseCode : std::uint16_t { GoingAway = 1001, UnsupportedData = 1003, PolicyViolation = 1008 };

// Used on the relay's one thread. Held by shared pointers; one is kept while a coroutine of the channel runs.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  struct Outgoing {
    bool text = false;
    std::uint32_t tag = 0;
    std::shared_ptr<const Bytes> bytes;
  };
  struct CloseRequest {
    CloseCode code{};
    std::string reason;
    std::chrono::milliseconds deadline{};
  };

  // More than `queue_bytes` bytes in the queue count as full.
  Channel(const boost::asio::any_io_executor& executor, std::size_t queue_bytes)
      : queue_bytes_(queue_bytes), changed_(executor, Clock::time_point::max()) {}

  // Queue a message; without effect when the channel is closing. discard() finds messages by `tag`; 0 means
  // none.
  void send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag = 0);
  void send_text(const std::string& text, std::uint32_t tag = 0);
  // Removes the queued messages with this tag, except one that is being written.
  void discard(std::uint32_t tag);

  // Closes the connection after the queue and a close frame are sent, or cuts it after `deadline`.
  void close(CloseCode code, const std::string& reason,
             std::chrono::milliseconds deadline = std::chrono::seconds(2));
  // Drops the connection at once, without a close frame.
  void cut(const std::string& reason);
  [[nodiscard]] bool closing() const { return closing_; }
  [[nodiscard]] const std::string& end_reason() const { return end_reason_; }

  [[nodiscard]] bool full() const { return queued_bytes_ > queue_bytes_; }
  // Returns when the queue is not full or the channel is closing.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_room();
  // Returns when room was made, messages were discarded or the channel began to close.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_change();

  // Asks the peer for a sign of life, once until one arrives.
  void ping(Clock::time_point now);
  void count_as_heard(Clock::time_point now) { last_heard_ = now; }
  [[nodiscard]] Clock::time_point last_heard() const { return last_heard_; }
  // How long no byte of the queue could be sent; zero when nothing is queued.
  [[nodiscard]] Clock::duration write_stall(Clock::time_point now) const;

  // The rest is for the connection that carries out what was asked. `act` runs after each request.
  void on_request(std::function<void()> act) { act_ = std::move(act); }
  [[nodiscard]] bool has_work() const { return working_; }
  [[nodiscard]] bool is_cut() const { return cut_; }
  [[nodiscard]] bool ping_requested() const { return ping_requested_; }
  [[nodiscard]] const std::optional<CloseRequest>& close_request() const { return close_request_; }
  // The next message to write. Its bytes count as queued until written() reports them.
  [[nodiscard]] std::optional<Outgoing> take();
  void written(std::size_t bytes);
  // The queue is empty and nothing is being written.
  void finished_work() { working_ = false; }
  void ping_sent() { ping_requested_ = false; }
  // The connection ended for this reason, unless a reason is known already.
  void end(const std::string& reason);

 private:
  void enqueue(Outgoing message);
  void begin_work();
  void request();

  const ThreadChecker thread_;
  const std::size_t queue_bytes_;
  std::deque<Outgoing> queue_;
  std::size_t queued_bytes_ = 0;
  bool working_ = false;
  bool closing_ = false;
  bool cut_ = false;
  bool ping_requested_ = false;
  std::optional<CloseRequest> close_request_;
  std::string end_reason_;
  Clock::time_point last_heard_ = Clock::now();
  Clock::time_point last_progress_ = Clock::now();
  Clock::time_point last_ping_{};
  std::function<void()> act_;
  boost::asio::steady_timer changed_;  // never expires; cancelled to resume the coroutines that wait
};

}  // namespace vlk::relay
