// What the streaming worker's thread does: the state that it owns and one iteration of its loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/clock.h"
#include "stream/capture/capture.h"
#include "stream/capture/cursor_overlay.h"
#include "stream/encode/h264_encoder.h"
#include "wire/messages.h"

namespace vlk::agent {

inline constexpr std::int32_t kDefaultStreamFps = 15;
inline constexpr std::int32_t kDefaultStreamBitrate = 6000000;  // bits a second

enum class StreamCodec : std::int32_t { Mjpeg = 0, H264 = 1 };

// Written by the connection thread, read by the worker where a step needs a value; a value may change between
// two reads of one iteration.
struct StreamSettings {
  std::atomic<std::int32_t> monitor_id{0};
  std::atomic<std::int32_t> max_fps{kDefaultStreamFps};      // below 1 counts as the default
  std::atomic<std::int32_t> quality{70};                     // of JPEG frames
  std::atomic<std::int32_t> bitrate{kDefaultStreamBitrate};  // bits a second
  std::atomic<StreamCodec> codec{StreamCodec::H264};
  std::atomic<bool> keyframe_requested{false};
  std::atomic<bool> show_cursor{true};
};

// Made, used and destroyed on the worker's thread.
class StreamWorker {
 public:
  // Opens the capture. All arguments but the number are borrowed.
  StreamWorker(std::uint32_t session_id, const SendCallable& send, const Clock& clock,
               StreamSettings& settings);

  // One iteration, its pause included.
  void RunIteration();

 private:
  void FollowMonitor();
  void DeliverFrame(CapturedFrame& frame, StreamCodec requested, std::int64_t interval_ms);
  bool Capture(CapturedFrame& frame, std::int64_t interval_ms);
  StreamCodec AnnounceChanges(const CapturedFrame& frame, StreamCodec requested);
  void Encode(const CapturedFrame& frame, StreamCodec effective, std::vector<std::uint8_t>& output);
  void Deliver(std::int64_t interval_ms);
  void MapInputToMonitor();

  const std::uint32_t session_id_;
  const SendCallable& send_;
  const Clock& clock_;
  StreamSettings& settings_;

  // In the reverse of the order in which they go.
  ScreenCapturer capturer_;
  CursorOverlay overlay_;
  H264Encoder encoder_;

  // The last frame's, used again: fresh memory of that size costs several times what the copy does.
  std::vector<std::uint8_t> pixel_memory_;

  bool dxgi_ok_ = false;     // the last Open's result: no report of whether the duplication still works
  bool encoder_ok_ = false;  // an H.264 session is open
  bool force_keyframe_ = true;
  std::int32_t current_monitor_ = 0;
  std::uint32_t last_width_ = 0, last_height_ = 0;  // of the last announcement
  std::int32_t last_codec_ = -1;                    // requested, not effective
  std::int64_t now_ = 0;                            // the iteration's start, in nanoseconds like all below
  std::int64_t last_sent_ = 0;
  std::int64_t last_keyframe_ = 0;
  std::int64_t start_time_ = 0;
};

}  // namespace vlk::agent
