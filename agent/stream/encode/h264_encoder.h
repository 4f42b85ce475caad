// Encodes captured frames as an H.264 byte stream (Annex B).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/threads/thread_checker.h"
#include "stream/capture/capture.h"

namespace vlk::agent {

// An encoder with one session at a time; sessions can follow one another. Used on the streaming worker's
// thread only.
class H264Encoder {
 public:
  H264Encoder();
  ~H264Encoder();
  H264Encoder(const H264Encoder&) = delete;
  H264Encoder& operator=(const H264Encoder&) = delete;

  // Opens a session; called while no session is open. The size is in pixels, `fps` in frames per second,
  // `bitrate` in bits per second. False if no encoder could be opened.
  [[nodiscard]] bool Init(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate);

  // Encodes a frame and appends the encoder's output to `out`. False on failure. If the result is true and
  // nothing was appended, the frame's output comes with a later call.
  bool Encode(const CapturedFrame& frame, std::vector<std::uint8_t>& out, bool force_keyframe);

  // Ends the session. Init may follow.
  void Shutdown();

  bool hardware = false;  // the open session uses a hardware encoder

 private:
  struct State;
  [[no_unique_address]] ThreadChecker worker_thread_;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
