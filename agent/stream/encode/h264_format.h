// The format of an H.264 session, the duration of its samples and the sizes of its pictures.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

inline constexpr std::int32_t kDefaultH264Fps = 30;           // differs from kDefaultStreamFps
inline constexpr std::int32_t kDefaultH264Bitrate = 6000000;  // bits per second
inline constexpr std::int64_t kSampleTimeSecond = 10000000;   // one second in units of 100 ns

// The size in pixels, the frame rate in frames per second (at least 1) and the bit rate in bits per second
// (above 0).
struct H264Format {
  std::int32_t width = 0, height = 0;
  std::int32_t fps = kDefaultH264Fps;
  std::int32_t bitrate = kDefaultH264Bitrate;
};

// Makes a format with this size, which may be odd. A frame rate or bit rate below 1 is replaced by its
// default.
[[nodiscard]] H264Format MakeH264Format(std::int32_t width, std::int32_t height, std::int32_t fps,
                                        std::int32_t bitrate);

// The duration of one frame in units of 100 ns, rounded down. `fps` is at least 1.
[[nodiscard]] constexpr std::int64_t FrameDuration(std::int32_t fps) {
  return kSampleTimeSecond / fps;
}

// Packs two 32-bit numbers into one 64-bit number, which is how media types store sizes and ratios.
[[nodiscard]] constexpr std::uint64_t PackPair(std::int32_t high, std::int32_t low) {
  return std::uint64_t{static_cast<std::uint32_t>(high)} << 32 | static_cast<std::uint32_t>(low);
}

// Bytes of the NV12 picture that the encoder receives: width * height * 3 / 2, computed with 32-bit integers.
[[nodiscard]] constexpr std::uint32_t Nv12Size(std::int32_t width, std::int32_t height) {
  return static_cast<std::uint32_t>(width) * static_cast<std::uint32_t>(height) * 3 / 2;
}

// Bytes of memory that the conversion to NV12 needs, which is more than Nv12Size. 0 if the width or the
// height is 0 or less.
[[nodiscard]] std::size_t Nv12Capacity(std::int32_t width, std::int32_t height);

}  // namespace vlk::agent
