// The list of monitors and their thumbnails. The index of a monitor in the list is its number in messages.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace vlk::agent {

struct MonitorInfo {
  std::int32_t id = 0;             // index in the list
  std::int32_t left = 0, top = 0;  // virtual-desktop pixels
  std::int32_t width = 0, height = 0;
  std::string name;  // "Display 1", ... or "Primary" if no output is found; not sent
};

struct MonitorThumbnail {
  std::int32_t id = 0;
  std::int32_t width = 0, height = 0;  // pixels
  std::vector<std::uint8_t> pixels;    // top-down rows of `width` pixels: blue, green, red, unused byte
};

struct ThumbnailSize {
  std::int32_t width = 0, height = 0;
};

// The size of a monitor's thumbnail. It has the monitor's proportions, truncated to whole pixels. No side is
// above `max_dimension` or below 1, and the picture is never enlarged.
[[nodiscard]] ThumbnailSize FitThumbnail(std::int32_t width, std::int32_t height, std::int32_t max_dimension);

// Payload of Msg::Thumbnail: id u8, count u8, width u16 and height u16 little-endian, then the JPEG file.
[[nodiscard]] std::vector<std::uint8_t> PackThumbnail(const MonitorThumbnail& thumbnail, std::size_t count,
                                                      const std::vector<std::uint8_t>& jpeg);

// Lists all monitors that belong to the desktop at this moment; never empty. ScreenCapturer::Open uses the
// same enumeration.
std::vector<MonitorInfo> EnumerateMonitors();

// Makes a thumbnail of each monitor. `max_dimension` limits the longer side, in pixels.
std::vector<MonitorThumbnail> CaptureThumbnails(std::int32_t max_dimension);

}  // namespace vlk::agent
