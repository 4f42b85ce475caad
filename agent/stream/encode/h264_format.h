// The arithmetic of an H.264 session: what it is opened with, and the steady clock that its samples run on.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

inline constexpr std::int32_t kDefaultH264Fps = 30;           // not the stream's own default
inline constexpr std::int32_t kDefaultH264Bitrate = 6000000;  // bits a second
inline constexpr std::int64_t kSampleTimeSecond = 10000000;   // units of 100 ns

// Pixels, frames a second (at least 1), bits a second (above 0).
struct H264Format {
  std::int32_t width = 0, height = 0;
  std::int32_t fps = kDefaultH264Fps;
  std::int32_t bitrate = kDefaultH264Bitrate;
};

// Takes sizes as they are, odd ones too, and puts the defaults in the place of rates below 1.
H264Format MakeH264Format(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate);

// How long one frame lasts, in units of 100 ns, rounded down. `fps` is at least 1.
constexpr std::int64_t FrameDuration(std::int32_t fps) {
  return kSampleTimeSecond / fps;
}

// Two 32-bit numbers as media types hold sizes and ratios.
constexpr std::uint64_t PackPair(std::int32_t high, std::int32_t low) {
  return std::uint64_t{static_cast<std::uint32_t>(high)} << 32 | static_cast<std::uint32_t>(low);
}

// Bytes of an NV12 picture as the encoder is handed it: width * height * 3 / 2 in 32 bits.
constexpr std::uint32_t Nv12Size(std::int32_t width, std::int32_t height) {
  return static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height) * 3 / 2;
}

// Bytes that the conversion to NV12 can reach, which for odd sizes is more. Never less than Nv12Size; 0
// without an area.
std::size_t Nv12Room(std::int32_t width, std::int32_t height);

}  // namespace vlk::agent
