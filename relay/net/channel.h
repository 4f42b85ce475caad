// A peer's connection as the relay's other parts use it: the outgoing messages, the closing of the
// connection, and the time when the peer last sent something.
//
// A Channel does no input or output itself. A WebSocketLink carries out the requests that are made to its
// Channel; tests read the queue instead.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/net/incoming.h"
#include "relay/net/queue/outbox.h"
#include "relay/net/tcp/tcp_progress.h"

namespace vlk::relay {

// WebSocket close codes (RFC 6455, 7.4.1) that the relay sends.
enum class CloseCode : std::uint16_t { GoingAway = 1001, UnsupportedData = 1003, PolicyViolation = 1008 };

// Used on the relay's one thread. Owned by shared pointers; each running coroutine of the channel holds one
// of them.
class Channel : public std::enable_shared_from_this<Channel> {
 public:
  using Division = vlk::relay::Division;
  using Piece = OutgoingPiece;
  struct CloseRequest {
    CloseCode code{};
    std::string reason;
    std::chrono::milliseconds deadline{};
  };

  // The queue counts as full when it has more than `queue_bytes` bytes.
  Channel(const boost::asio::any_io_executor& executor, std::size_t queue_bytes, Division division)
      : queue_bytes_(queue_bytes), outbox_(division), changed_(executor, Clock::time_point::max()) {}
  Channel(const boost::asio::any_io_executor& executor, std::size_t queue_bytes)
      : Channel(executor, queue_bytes, Division{}) {}

  // Counts what passes the connection in `traffic`, which outlives the channel's last use.
  void count_into(Traffic& traffic) {
    traffic_ = &traffic;
    outbox_.count_into(traffic);
  }
  // Counts a message that has arrived.
  void count_arrived(const Incoming& incoming) const;
  // The bytes of all messages in the queue, without the pieces that were taken from it.
  [[nodiscard]] std::size_t waiting_bytes() const { return outbox_.waiting_bytes(); }

  // Queue a message, unless the channel is closing. discard() finds messages by their `tag`; 0 means that the
  // message has no tag.
  void send_binary(std::shared_ptr<const Bytes> bytes, std::uint32_t tag = 0, Lane lane = Lane::Urgent);
  void send_text(const std::string& text, std::uint32_t tag = 0);
  void send_text(std::shared_ptr<const Bytes> text, std::uint32_t tag, Lane lane);
  // Queues a large bulk message, which does not count in full().
  void send_large(std::shared_ptr<const Bytes> bytes, std::uint32_t tag);
  // Queues a picture of the stream with this tag, unless the peer is too slow for it. Returns false if a key
  // frame is needed before the peer gets another picture. Pictures do not count in full(). `header` replaces
  // the first bytes, because peers share the bytes of a picture.
  [[nodiscard]] bool send_picture(std::shared_ptr<const Bytes> bytes, std::uint32_t tag, PictureKind kind,
                                  const std::optional<OutgoingHeader>& header = {});
  // True while a large message with this tag is queued.
  [[nodiscard]] bool has_large(std::uint32_t tag) const { return outbox_.has_large(tag); }
  // The bytes of the messages with this tag that are in the queue.
  [[nodiscard]] std::size_t queued_bytes(Lane lane, std::uint32_t tag) const {
    return outbox_.queued_bytes(lane, tag);
  }
  // What became of the pictures of the stream with this tag since the last call.
  [[nodiscard]] PictureTally take_tally(std::uint32_t tag) { return outbox_.take_tally(tag); }
  // Act on the bulk messages with this tag of which nothing was taken yet: remove those for which `unwanted`
  // returns true; or let them be written before every message that is sent from now on.
  void discard_bulk(std::uint32_t tag, const std::function<bool(const Bytes&)>& unwanted);
  void promote_bulk(std::uint32_t tag);
  // All messages that were sent before this time will be written before one that is sent now in the urgent
  // lane.
  [[nodiscard]] Clock::time_point overtakes_nothing_before(Clock::time_point now) const {
    return std::min(now, outbox_.oldest_bulk().value_or(now));
  }
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

  [[nodiscard]] bool full() const { return outbox_.counted_bytes() > queue_bytes_; }
  // Half of what makes the queue full. What is sent only until then leaves room for other messages.
  [[nodiscard]] bool half_full() const { return outbox_.counted_bytes() > queue_bytes_ / 2; }
  // The queue is full even without its bulk messages.
  [[nodiscard]] bool full_without_bulk() const { return outbox_.unwritten_but_bulk() > queue_bytes_; }
  // Returns when the queue has room for answers to the peer's requests, whatever bulk messages wait, or the
  // channel is closing.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_room();
  // Returns when the queue is no longer full, messages were discarded, resume_waiting() was called or the
  // channel began to close.
  [[nodiscard]] boost::asio::awaitable<void> wait_for_change();
  // Resumes the coroutines in wait_for_change(), for a change that the channel does not know of.
  void resume_waiting() { changed_.cancel(); }

  // Requests a ping to the peer. Does nothing if the peer has sent nothing since the previous ping.
  void ping(Clock::time_point now);
  // Sets a function that is called when the channel begins to close.
  void on_end(std::function<void()> act) { ended_ = std::move(act); }
  [[nodiscard]] boost::asio::any_io_executor executor() { return changed_.get_executor(); }
  void count_as_heard(Clock::time_point now) { last_heard_ = now; }
  [[nodiscard]] Clock::time_point last_heard() const { return last_heard_; }
  // How long the peer has taken none of the queued bytes; zero when nothing is queued.
  [[nodiscard]] Clock::duration write_stall(Clock::time_point now);
  // How long the peer's system has confirmed nothing although it was sent something; zero when it has
  // confirmed everything. Is measured from the call before.
  [[nodiscard]] Clock::duration line_stall(Clock::time_point now);
  // The time of the last send. True for idle() when everything that was sent has been written.
  [[nodiscard]] Clock::time_point last_sent() const { return last_sent_; }
  [[nodiscard]] bool idle() const { return !working_; }

  // The functions below are for the WebSocketLink that carries out the requests. `act` is called after each
  // request.
  void on_request(std::function<void()> act) { act_ = std::move(act); }
  // Sets a function that measures what the peer has confirmed so far. Without it, only written() shows that
  // the peer takes bytes. The system's send buffer accepts new bytes in large steps, which can take longer
  // than a time limit on a slow connection.
  void on_measure(std::function<TcpProgress()> measure) { measure_ = std::move(measure); }
  // Sets a function that is called after the last piece of each bulk message was written.
  void on_bulk_written(std::function<void(const Piece&)> act) { bulk_written_ = std::move(act); }
  [[nodiscard]] bool has_work() const { return working_; }
  [[nodiscard]] bool is_cut() const { return cut_; }
  [[nodiscard]] bool ping_requested() const { return ping_requested_; }
  [[nodiscard]] const std::optional<CloseRequest>& close_request() const { return close_request_; }
  [[nodiscard]] bool divides_into_parts() const { return outbox_.division().parts; }
  // Takes the next piece from the queue, to be written. counted_bytes() has its bytes until written() reports
  // them.
  [[nodiscard]] std::optional<Piece> take() { return outbox_.take(); }
  // The size of the next piece in bytes; 0 if there is none.
  [[nodiscard]] std::size_t next_size() const { return outbox_.next_size(); }
  void written(const Piece& piece);
  // Reports that the queue is empty and nothing is being written.
  void finished_work() { working_ = false; }
  void ping_sent() { ping_requested_ = false; }
  // Reports that the connection ended for this reason. If it is closing already, the first reason is kept.
  void end(const std::string& reason);

 private:
  void enqueue(Lane lane, OutgoingMessage message);
  void sent();
  void begin_work();
  void request();

  const ThreadChecker thread_;
  const std::size_t queue_bytes_;
  Outbox outbox_;
  Traffic* traffic_ = nullptr;
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
  std::uint64_t line_confirmed_ = 0;
  Clock::time_point line_progress_ = Clock::now();
  Clock::time_point last_ping_{};
  std::function<void()> act_;
  std::function<void()> ended_;
  std::function<TcpProgress()> measure_;
  std::function<void(const Piece&)> bulk_written_;
  boost::asio::steady_timer changed_;  // never expires; is cancelled to resume the waiting coroutines
};

}  // namespace vlk::relay
