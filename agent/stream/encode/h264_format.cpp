// Defaults and buffer sizes of an H.264 session.
#include "stream/encode/h264_format.h"

#include "stream/encode/colour.h"

namespace vlk::agent {

H264Format MakeH264Format(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate) {
  return {width, height, fps < 1 ? kDefaultH264Fps : fps, bitrate > 0 ? bitrate : kDefaultH264Bitrate};
}

std::size_t Nv12Capacity(std::int32_t width, std::int32_t height) {
  if (width <= 0 || height <= 0) return 0;
  return static_cast<std::size_t>(width) * static_cast<std::size_t>(height) + ChromaCapacity(width, height);
}

}  // namespace vlk::agent
