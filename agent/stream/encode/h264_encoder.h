// Turns captured frames into an H.264 byte stream (Annex B).
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "stream/capture/capture.h"

namespace vlk::agent {

// One session at a time, any number one after another. Used on the streaming worker's thread only.
class H264Encoder {
 public:
  H264Encoder();
  ~H264Encoder();
  H264Encoder(const H264Encoder&) = delete;
  H264Encoder& operator=(const H264Encoder&) = delete;

  // Opens a session; call only when none is open. Pixels, frames a second, bits a second. False: no encoder.
  bool Init(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate);

  // Appends what the encoder put out to `out`. True with nothing appended: the frame was taken, output comes
  // later.
  bool Encode(const CapturedFrame& frame, std::vector<std::uint8_t>& out, bool force_keyframe);

  // Ends the session. Init may follow.
  void Shutdown();

  bool hardware = false;  // the open session runs on a hardware encoder

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vlk::agent
