// The one stream of a machine and the sessions that watch it.
//
// An agent has one streamer. Each StreamStart replaces it by a new one, whose pictures carry the session of
// that message, and whose session is also that of the machine's clipboard. The end of any session, watching
// or not, ends the stream. An agent reports to its user how many sessions have sent StreamStart and have not
// ended.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/stream/h264/stream.h"
#include "wire/messages.h"

namespace vlk::relay {

// What a stream shows, for all who watch it.
struct StreamChoices {
  std::int32_t monitor = 0;
  std::int32_t max_fps = 15;         // pictures a second
  std::int32_t bitrate = 6'000'000;  // bits a second
  bool jpeg = false;                 // JPEG files instead of H.264
  bool pointer = true;               // the machine paints its pointer into the pictures
};

// Decides which messages the machine gets. Used on the relay's one thread.
class SharedStream {
 public:
  // A message for the machine with a JSON payload.
  struct Order {
    Msg type{};
    std::uint32_t session = 0;
    std::string json;
  };
  using Orders = std::vector<Order>;

  // The machine was sent the session's StreamStart with these choices. The session leads the stream from then
  // on: the pictures carry its number.
  void started(std::uint32_t session, const StreamChoices& choices);
  // The session watches a stream that another session leads. The machine counts it from then on.
  [[nodiscard]] Orders join(std::uint32_t session);
  // Makes the session the leader, if it watches and another one leads.
  [[nodiscard]] Orders lead(std::uint32_t session);
  // The machine was sent a message that ends the stream, and this session does not watch any more. The stream
  // starts again for the others, led by `next` if that session watches.
  [[nodiscard]] Orders stopped(std::uint32_t session, std::uint32_t next);
  // Starts the stream again with its choices.
  [[nodiscard]] Orders restart();
  // Notes what a MonitorSelect, CodecSelect or CursorVisibility to the machine has changed.
  void chosen(Msg type, const nlohmann::json& payload);
  // Sets the rates that restart() uses.
  void set_rates(std::int32_t max_fps, std::int32_t bitrate);

  // A key frame is needed. True if the machine is to be asked for one now. It is asked at most once in
  // kKeyFramePause, for all sessions together; a need that comes too early is kept until key_frame_due().
  [[nodiscard]] bool need_key_frame(Clock::time_point now);
  [[nodiscard]] bool key_frame_due(Clock::time_point now);

  // False for the pictures of a stream that has been replaced.
  [[nodiscard]] bool is_current(std::uint32_t session) const { return leader_ == 0 || leader_ == session; }
  // The session that the pictures carry; 0 while nothing is streamed.
  [[nodiscard]] std::uint32_t leader() const { return leader_; }
  [[nodiscard]] bool watched_by(std::uint32_t session) const { return watching_.contains(session); }
  [[nodiscard]] const std::set<std::uint32_t>& watching() const { return watching_; }
  [[nodiscard]] const StreamChoices& choices() const { return choices_; }

  // The state of the H.264 stream that the machine sends.
  H264Stream video{};

  // Each key frame costs the machine and the line a large picture.
  static constexpr std::chrono::seconds kKeyFramePause{1};

 private:
  [[nodiscard]] Order start_order(std::uint32_t session) const;
  // The machine forgets these two choices with each start.
  void add_choices(Orders& orders) const;

  StreamChoices choices_;
  std::set<std::uint32_t> watching_;  // session numbers, the ones that the machine counts
  std::uint32_t leader_ = 0;
  Clock::time_point key_frame_asked_{};
  bool key_frame_needed_ = false;
};

// The payload of a StreamStart with these choices.
[[nodiscard]] std::string start_json(const StreamChoices& choices);

// The choices in the payload of a StreamStart. A value that is missing or not a number of 32 bits has its
// default, as at the agent.
[[nodiscard]] StreamChoices stream_choices(const nlohmann::json& payload);

}  // namespace vlk::relay
