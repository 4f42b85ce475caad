// A model of one direction of a slow line: the times at which packets leave and arrive. It has no clock and
// no sockets of its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>

namespace vlk::relay {

using LineTime = std::chrono::steady_clock::time_point;

// From `begin` to `end` the line carries nothing.
struct Outage {
  LineTime begin;
  LineTime end;
};

struct LineRules {
  double bits_per_second = 0;          // 0 means no limit
  std::chrono::milliseconds delay{0};  // one way; the line's other direction has the same
  double loss = 0;                     // the share of packets that are lost, below 1
  std::size_t queue = 64 * 1024;       // bytes that wait at the line's entrance until its sender is held back
  std::optional<Outage> outage{};
};

// The largest packet: the payload of a TCP segment on Ethernet.
inline constexpr std::size_t kPacketBytes = 1448;

// TCP repairs losses, so a receiver sees a lost packet as a stall: the packet and everything after it on the
// same connection arrive later. The model adds these stalls:
//   - A first loss costs one round trip, after which the sender learns of it and sends the packet again.
//   - If this packet is lost too, each further loss costs a retransmission timeout, which doubles (RFC 6298,
//     section 5.5). It starts with a round trip and 200 ms, Linux's shortest.
//   - A packet that meets an outage is repeated at such timeouts up to the first one after the outage, so a
//     long outage lasts longer for TCP than for the line. Linux and the model limit the timeout to 120 s.
// A packet that is sent again takes room on the line again. The model has no congestion window: it stands for
// a sender whose congestion control keeps the line full in spite of losses.
class LineModel {
 public:
  explicit LineModel(const LineRules& rules, std::uint32_t seed = 1);

  // The time from which the line's entrance accepts the next packet.
  [[nodiscard]] LineTime accepts_at() const;
  struct Passage {
    LineTime arrival;
    LineTime held_until;  // the end of the outage for the packet's connection, which sends nothing until then
  };
  // Sends a packet that is accepted now.
  [[nodiscard]] Passage send(std::size_t bytes, LineTime now);
  // The most bytes that the line holds: those in the queue, and those that travel or stall.
  [[nodiscard]] std::size_t capacity() const;
  // The time at which a request to connect that is sent now gets through. It is repeated after 1 s, 3 s, 7 s
  // and so on while the line is gone.
  [[nodiscard]] LineTime request_passes(LineTime now) const;

 private:
  using Time = std::chrono::steady_clock::duration;
  [[nodiscard]] Time on_the_line(std::size_t bytes) const;
  // The first repetition after the outage of what is sent at `at`; `at` itself if no outage is met.
  [[nodiscard]] LineTime after_outage(LineTime at, Time timeout) const;
  // The time by which losses delay a packet. Lets the line transmit the packet again for each.
  [[nodiscard]] Time stall(std::size_t bytes);

  const LineRules rules_;
  const Time timeout_;  // of the first retransmission
  std::mt19937 random_;
  LineTime idle_;  // the end of the last packet's transmission
};

}  // namespace vlk::relay
