// The messages that wait to be written to one peer, in lanes of different urgency.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/net/queue/picture_gate.h"
#include "relay/net/queue/traffic.h"

namespace vlk::relay {

// A message of an earlier lane overtakes those of the later ones, except that bulk messages always get a part
// of the line. The order within a lane stays.
enum class Lane : std::uint8_t { Urgent, Control, Picture, Bulk };

// How messages are divided for writing. In parts, each piece is a WebSocket message of its own, so pieces of
// messages in different lanes can alternate, and a message can be given up between two pieces. Otherwise the
// pieces are the fragments of one WebSocket message.
struct Division {
  bool parts = false;
  std::size_t piece_bytes = SIZE_MAX;
};

// The first bytes of a message in place of those that `bytes` has there, so that peers can share the rest.
using OutgoingHeader = std::array<std::uint8_t, 10>;

// What became of the pictures of one stream.
struct PictureTally {
  std::uint32_t written = 0;
  std::uint32_t dropped = 0;  // because the viewer reads too slowly
  Clock::duration waited{};   // the sum of the times in the queue of those that were written
};

struct OutgoingMessage {
  bool text = false;
  std::uint32_t tag = 0;
  std::shared_ptr<const Bytes> bytes{};  // with a header: at least as long as the header
  std::optional<OutgoingHeader> header{};
  // The message is large: its bytes do not count in counted_bytes().
  bool large = false;
  PictureKind kind = PictureKind::Complete;  // of a message in the lane of pictures
  Clock::time_point queued = Clock::now();
  std::size_t taken = 0;  // bytes that take() has returned

  [[nodiscard]] std::size_t left() const { return bytes->size() - taken; }
};

// A run of bytes of one message.
struct OutgoingPiece {
  Lane lane = Lane::Urgent;
  std::uint32_t tag = 0;
  Clock::time_point queued{};
  bool text = false;
  bool counts = true;  // the message's bytes count in counted_bytes()
  bool first = false;  // the piece begins its message
  bool last = false;   // the piece completes its message
  std::shared_ptr<const Bytes> message{};
  std::optional<OutgoingHeader> header{};
  std::size_t offset = 0;
  std::size_t size = 0;

  // The bytes of the piece: those of the header, then the rest.
  [[nodiscard]] std::array<std::span<const std::uint8_t>, 2> bytes() const {
    const std::size_t end = header ? header->size() : 0;
    const std::size_t own = offset < end ? std::min(end - offset, size) : 0;
    const std::span whole(*message);
    if (own == 0) return {std::span<const std::uint8_t>{}, whole.subspan(offset, size)};
    return {std::span(*header).subspan(offset, own), whole.subspan(offset + own, size - own)};
  }
};

// Used on one thread.
class Outbox {
 public:
  explicit Outbox(Division division) : division_(division) {}

  // Also counts what is written and dropped in `traffic`, which outlives this object or its last use.
  void count_into(Traffic& traffic) { traffic_ = &traffic; }

  void add(Lane lane, OutgoingMessage message);
  // Queues a picture of the stream with the message's tag, unless the viewer is behind. Returns false if a
  // key frame is needed before this viewer gets another picture of the stream.
  [[nodiscard]] bool add_picture(OutgoingMessage message, Clock::time_point now);

  // Returns the next piece, to be written. Its bytes count until written() reports them.
  [[nodiscard]] std::optional<OutgoingPiece> take();
  // The size of the piece that take() would return; 0 if there is none.
  [[nodiscard]] std::size_t next_size() const;
  void written(const OutgoingPiece& piece, Clock::time_point now);
  // What became of the pictures with this tag since the last call.
  [[nodiscard]] PictureTally take_tally(std::uint32_t tag);

  // Removes the messages with this tag. Of a message that take() has begun, the other parts are removed;
  // without a division into parts, it stays.
  void remove(std::uint32_t tag);
  // Removes the bulk messages with this tag for which `unwanted` returns true and that take() has not begun.
  void remove_bulk(std::uint32_t tag, const std::function<bool(const Bytes&)>& unwanted);
  // Moves the bulk messages with this tag to the end of the urgent lane.
  void promote_bulk(std::uint32_t tag);
  void clear();

  [[nodiscard]] bool empty() const;
  // True while a large message with this tag is queued.
  [[nodiscard]] bool has_large(std::uint32_t tag) const;
  // The bytes of the messages in a lane with this tag that take() has not returned yet.
  [[nodiscard]] std::size_t queued_bytes(Lane lane, std::uint32_t tag) const;
  // The time since which the oldest bulk message is queued; nothing if there is none.
  [[nodiscard]] std::optional<Clock::time_point> oldest_bulk() const;
  // The bytes of all messages that take() has not returned yet. Adds them up.
  [[nodiscard]] std::size_t waiting_bytes() const;
  // The bytes that are not written yet, without pictures and large messages.
  [[nodiscard]] std::size_t counted_bytes() const { return unwritten_but_bulk() + counted_in(Lane::Bulk); }
  // The same, without the bulk messages.
  [[nodiscard]] std::size_t unwritten_but_bulk() const {
    return counted_in(Lane::Urgent) + counted_in(Lane::Control);
  }

  [[nodiscard]] const Division& division() const { return division_; }

 private:
  using Queue = std::deque<OutgoingMessage>;
  static constexpr std::size_t kLanes = 4;

  [[nodiscard]] Queue& queue(Lane lane) { return lanes_[static_cast<std::size_t>(lane)]; }
  [[nodiscard]] const Queue& queue(Lane lane) const { return lanes_[static_cast<std::size_t>(lane)]; }
  [[nodiscard]] static bool counts(Lane lane, const OutgoingMessage& message);
  [[nodiscard]] std::optional<Lane> next_lane() const;
  [[nodiscard]] std::size_t counted_in(Lane lane) const { return counted_[static_cast<std::size_t>(lane)]; }
  [[nodiscard]] std::size_t& counted_in(Lane lane) { return counted_[static_cast<std::size_t>(lane)]; }
  void count(const OutgoingPiece& piece, Clock::time_point now) const;
  // Returns the number of removed messages.
  template <class Condition>
  std::size_t remove_where(Lane lane, Condition condition);

  const Division division_;
  std::array<Queue, kLanes> lanes_;
  std::map<std::uint32_t, PictureGate> gates_;     // by the stream's tag
  std::map<std::uint32_t, PictureTally> tallies_;  // by the stream's tag
  std::array<std::size_t, kLanes> counted_{};
  Traffic* traffic_ = nullptr;
  std::size_t pictures_in_a_row_ = 0;  // pieces of pictures since the last piece of a bulk message
};

}  // namespace vlk::relay
