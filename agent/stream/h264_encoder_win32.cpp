// H.264 on Windows. No session opens yet, so the streaming worker sends JPEG, as it does on a machine without
// an encoder; the session on Media Foundation's transform is still to come.
#include "stream/h264_encoder.h"

namespace vlk::agent {

struct H264Encoder::State {};

H264Encoder::H264Encoder() = default;

H264Encoder::~H264Encoder() = default;

bool H264Encoder::Init(std::int32_t /*width*/, std::int32_t /*height*/, std::int32_t /*fps*/,
                       std::int32_t /*bitrate*/) {
  return false;
}

bool H264Encoder::Encode(const CapturedFrame& /*frame*/, std::vector<std::uint8_t>& /*out*/,
                         bool /*force_keyframe*/) {
  return false;
}

void H264Encoder::Shutdown() {}

}  // namespace vlk::agent
