// The sizes and payloads of thumbnails.
#include "stream/capture/monitors.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

TEST(FitThumbnail, KeepsTheProportionsAndTruncatesFractionsOfAPixel) {
  const struct {
    std::int32_t width, height, expected_width, expected_height;
  } rows[] = {
      {1920, 1080, 320, 180},  // exact
      {1366, 768, 320, 179},   // 179.91 is truncated
      {1080, 1920, 180, 320},  // portrait
      {300, 200, 300, 200},    // never enlarged
      {320, 320, 320, 320},    // exactly at the limit
      {321, 321, 320, 320},    // just above the limit
      {4000, 1, 320, 1},       // at least one pixel
      {1, 4000, 1, 320},
      {1, 1, 1, 1},
      {1280, 720, 320, 180},
      {3840, 2160, 320, 180},
      {2147483647, 2147483647, 320, 320},
  };
  for (const auto& row : rows) {
    const ThumbnailSize size = FitThumbnail(row.width, row.height, 320);
    EXPECT_EQ(size.width, row.expected_width) << row.width << " by " << row.height;
    EXPECT_EQ(size.height, row.expected_height) << row.width << " by " << row.height;
  }
}

TEST(FitThumbnail, NeverExceedsTheLimit) {
  EXPECT_EQ(FitThumbnail(1920, 1080, 64).width, 64);
  EXPECT_EQ(FitThumbnail(1920, 1080, 64).height, 36);
  EXPECT_EQ(FitThumbnail(1920, 1080, 1).width, 1);
  EXPECT_EQ(FitThumbnail(1920, 1080, 1).height, 1);
}

TEST(PackThumbnail, StartsWithALittleEndianHeaderFollowedByTheJpegFile) {
  MonitorThumbnail thumbnail;
  thumbnail.id = 2;
  thumbnail.width = 320;
  thumbnail.height = 180;
  EXPECT_EQ(PackThumbnail(thumbnail, 3, {0xFF, 0xD8, 0x00, 0xD9}),
            (std::vector<std::uint8_t>{2, 3, 0x40, 0x01, 0xB4, 0x00, 0xFF, 0xD8, 0x00, 0xD9}));
}

TEST(PackThumbnail, WritesOnlyTheLowBytesOfNumbersThatExceedTheirFields) {
  MonitorThumbnail thumbnail;
  thumbnail.id = 0x1FE;
  thumbnail.width = 0x12345;
  thumbnail.height = 0x1FFFF;
  EXPECT_EQ(PackThumbnail(thumbnail, 0x203, {}),
            (std::vector<std::uint8_t>{0xFE, 0x03, 0x45, 0x23, 0xFF, 0xFF}));
}

TEST(PackThumbnail, IgnoresTheUncompressedPixels) {
  MonitorThumbnail thumbnail;
  thumbnail.width = thumbnail.height = 1;
  thumbnail.pixels = {1, 2, 3, 4};
  EXPECT_EQ(PackThumbnail(thumbnail, 1, {9}), (std::vector<std::uint8_t>{0, 1, 1, 0, 1, 0, 9}));
}

}  // namespace
}  // namespace vlk::agent
