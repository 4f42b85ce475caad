// The size of a thumbnail and the payload of its message.
#include "stream/capture/monitors.h"

#include <algorithm>

namespace vlk::agent {
namespace {

constexpr std::size_t kThumbnailHeaderSize = 6;

std::uint8_t low_byte(std::int64_t value) {
  return static_cast<std::uint8_t>(value & 0xFF);
}

}  // namespace

ThumbnailSize FitThumbnail(std::int32_t width, std::int32_t height, std::int32_t max_dimension) {
  const double scale = std::min(1.0, static_cast<double>(max_dimension) / std::max(width, height));
  return {std::max(1, static_cast<std::int32_t>(width * scale)),
          std::max(1, static_cast<std::int32_t>(height * scale))};
}

std::vector<std::uint8_t> PackThumbnail(const MonitorThumbnail& thumbnail, std::size_t count,
                                        const std::vector<std::uint8_t>& jpeg) {
  // The numbers are little-endian, unlike those of the envelope: receivers expect this order.
  const std::uint8_t header[kThumbnailHeaderSize] = {
      low_byte(thumbnail.id),     low_byte(static_cast<std::int64_t>(count)),
      low_byte(thumbnail.width),  low_byte(thumbnail.width >> 8),
      low_byte(thumbnail.height), low_byte(thumbnail.height >> 8),
  };
  std::vector<std::uint8_t> payload(kThumbnailHeaderSize + jpeg.size());
  std::copy(std::begin(header), std::end(header), payload.begin());
  std::copy(jpeg.begin(), jpeg.end(), payload.begin() + kThumbnailHeaderSize);
  return payload;
}

}  // namespace vlk::agent
