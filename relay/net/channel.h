// A peer's connection as the relay's other parts use it: the queue of outgoing messages, the closing of the
// connection, and the time when the peer last sent something.
//
// A Channel does no input or output itself. A WebSocketLink carries out the requests that are made to its
// Channel; tests read the queue instead.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <span>
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

// Used on the relay's one thread. Owned by shared pointers; each running coroutine of the channel holds one
// of them.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  // How messages are divided for writing. In parts, each piece is a WebSocket message of its own, so pieces
  // of two messages can alternate, and a message can be given up between two pieces. Otherwise the pieces are
  // the fragments of one WebSocket message.
  struct Division {
    bool parts = false;
    std::size_t piece_bytes = SIZE_MAX;
  };
  // A run of bytes of one message.
  struct Piece {
    bool text = false;
    bool bulk = false;
    bool first = false;  // the piece begins its message
    bool last = false;   // the piece completes its message
    std::shared_ptr<const Bytes> message;
    std::size_t offset = 0;
    std::size_t size = 0;

    [[nodiscard]] std::span<const std::uint8_t> bytes() const {
      return std::span(*message).subspan(offset, size);
    }
  };
  struct CloseRequest {
    CloseCode code{};
    std::string reason;
    std::chrono::milliseconds deadline{};
  };

  // The queue counts as full when it has more than `queue_bytes` bytes.
  Channel(const boost::asio::any_io_executor& executor, std::size_t queue_bytes, Division division)
      : queue_bytes_(queue_bytes), division_(division), changed_(executor, Clock::time_point::max()) {}
  Channel(const boost::asio::any_io_executor& executor, std::size_t queue_bytes)
      : Channel(executor, queue_bytes, Division{}) {}

  // Put a message into the queue, unless the channel is closing. discard() finds messages by their `tag`; 0
  // means that the message has no tag.
  void send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag = 0);
  void send_text(const std::string& text, std::uint32_t tag = 0);
  // Puts a message into the second queue, whose pieces alternate with those of the first. It is for large
  // messages that others may overtake, needs a division into parts, and does not count in full().
  void send_bulk(std::shared_ptr<const Bytes> bytes, std::uint32_t tag);
  // True while the second queue has a message with this tag.
  [[nodiscard]] bool has_bulk(std::uint32_t tag) const;
  // Removes the queued messages with this tag. Of a message that is being written, the other parts are not
  // sent; without a division into parts, it is still sent.
  void discard(std::uint32_t tag);

  // Closes the connection after the queued messages and a close frame are sent. If they are not sent within
  // `deadline`, calls cut().
  void close(CloseCode code, const std::string& reason,
             std::chrono::milliseconds deadline = std::chrono::seconds(2));
  // Closes the connection at once, without a close frame and without sending the queued messages.
  void cut(const std::string& reason);
  [[nodiscard]] bool closing() const { return closing_; }
  [[nodiscard]] const std::string& end_reason() const { return end_reason_; }

  [[nodiscard]] bool full() const { return queued_bytes_ > queue_bytes_; }
  // Returns when the queue is not full or the channel is closing.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_room();
  // Returns when the queue is no longer full, messages were discarded, resume_waiting() was called or the
  // channel began to close.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_change();
  // Resumes the coroutines in wait_for_change(), for a change that the channel does not know of.
  void resume_waiting() { changed_.cancel(); }

  // Requests a ping to the peer. Does nothing if the peer has sent nothing since the previous ping.
  void ping(Clock::time_point now);
  void count_as_heard(Clock::time_point now) { last_heard_ = now; }
  [[nodiscard]] Clock::time_point last_heard() const { return last_heard_; }
  // How long the peer has taken none of the queued bytes; zero when nothing is queued.
  [[nodiscard]] Clock::duration write_stall(Clock::time_point now);
  // The time of the last send. True for idle() when everything that was sent has been written.
  [[nodiscard]] Clock::time_point last_sent() const { return last_sent_; }
  [[nodiscard]] bool idle() const { return !working_; }

  // The functions below are for the WebSocketLink that carries out the requests. `act` is called after each
  // request.
  void on_request(std::function<void()> act) { act_ = std::move(act); }
  // Sets a function that returns how many bytes the peer has confirmed so far. Without it, only written()
  // shows that the peer takes bytes. The system's send buffer accepts new bytes in large steps, which can
  // take longer than a time limit on a slow connection.
  void on_measure(std::function<std::uint64_t()> confirmed) { confirmed_ = std::move(confirmed); }
  [[nodiscard]] bool has_work() const { return working_; }
  [[nodiscard]] bool is_cut() const { return cut_; }
  [[nodiscard]] bool ping_requested() const { return ping_requested_; }
  [[nodiscard]] const std::optional<CloseRequest>& close_request() const { return close_request_; }
  [[nodiscard]] bool divides_into_parts() const { return division_.parts; }
  // Returns the next piece, to be written. Its bytes count as queued until written() reports them.
  [[nodiscard]] std::optional<Piece> take();
  void written(const Piece& piece);
  // Reports that the queue is empty and nothing is being written.
  void finished_work() { working_ = false; }
  void ping_sent() { ping_requested_ = false; }
  // Reports that the connection ended for this reason. If it is closing already, the first reason is kept.
  void end(const std::string& reason);

 private:
  struct Message {
    bool text = false;
    std::uint32_t tag = 0;
    std::shared_ptr<const Bytes> bytes;
    std::size_t taken = 0;  // bytes that take() has returned

    [[nodiscard]] std::size_t left() const { return bytes->size() - taken; }
  };
  using Queue = std::deque<Message>;

  void enqueue(Queue& queue, Message message);
  // Removes messages from a queue and returns how many bytes of them were left.
  std::size_t remove(Queue& queue, std::uint32_t tag) const;
  void begin_work();
  void request();

  const ThreadChecker thread_;
  const std::size_t queue_bytes_;
  const Division division_;
  Queue queue_;
  Queue bulk_;
  bool bulk_is_next_ = false;
  std::size_t queued_bytes_ = 0;  // of queue_
  bool working_ = false;
  bool closing_ = false;
  bool cut_ = false;
  bool ping_requested_ = false;
  std::optional<CloseRequest> close_request_;
  std::string end_reason_;
  Clock::time_point last_heard_ = Clock::now();
  Clock::time_point last_progress_ = Clock::now();
  Clock::time_point last_sent_ = Clock::now();
  std::uint64_t last_confirmed_ = 0;
  Clock::time_point last_ping_{};
  std::function<void()> act_;
  std::function<std::uint64_t()> confirmed_;
  boost::asio::steady_timer changed_;  // never expires; is cancelled to resume the waiting coroutines
};

}  // namespace vlk::relay
