// The list that gives every monitor its number on the wire, and a small picture of each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vlk::agent {

struct MonitorInfo {
  std::int32_t id = 0;             // index in the list
  std::int32_t left = 0, top = 0;  // virtual-desktop pixels
  std::int32_t width = 0, height = 0;
  std::string name;  // "Display 1", ... or "Primary" for the fallback; no message carries it
};

struct MonitorThumbnail {
  std::int32_t id = 0;
  std::int32_t width = 0, height = 0;  // pixels
  std::vector<std::uint8_t> pixels;    // height top-down rows of width * 4 bytes: blue, green, red, fourth
};

struct ThumbnailSize {
  std::int32_t width = 0, height = 0;
};

// Size of a monitor's thumbnail: its shape kept up to truncation, neither side above `max_dimension` nor
// below 1, never enlarged.
ThumbnailSize FitThumbnail(std::int32_t width, std::int32_t height, std::int32_t max_dimension);

// Payload of Msg::Thumbnail: id u8, count u8, width u16 and height u16 little-endian, then the JPEG file.
std::vector<std::uint8_t> PackThumbnail(const MonitorThumbnail& thumbnail, std::size_t count,
                                        const std::vector<std::uint8_t>& jpeg);

// One fresh walk over adapters and their attached outputs; never empty. ScreenCapturer::Open repeats the same
// walk.
std::vector<MonitorInfo> EnumerateMonitors();

// `max_dimension` limits the longer side, in pixels.
std::vector<MonitorThumbnail> CaptureThumbnails(std::int32_t max_dimension);

}  // namespace vlk::agent
