// The format, the durations and the sizes of an H.264 session.
#include "stream/encode/h264_format.h"

#include <limits>

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

TEST(H264Format, FrameRatesAndBitRatesBelowOneAreReplacedByTheDefaults) {
  for (const std::int32_t fps : {std::numeric_limits<std::int32_t>::min(), -1, 0}) {
    EXPECT_EQ(MakeH264Format(640, 480, fps, 1).fps, 30) << fps;
  }
  for (const std::int32_t bitrate : {std::numeric_limits<std::int32_t>::min(), -1, 0}) {
    EXPECT_EQ(MakeH264Format(640, 480, 1, bitrate).bitrate, 6000000) << bitrate;
  }
}

TEST(H264Format, SizesAndPositiveRatesAreUsedUnchanged) {
  const H264Format format = MakeH264Format(1919, 1, 2000, 1);
  EXPECT_EQ(format.width, 1919);
  EXPECT_EQ(format.height, 1);
  EXPECT_EQ(format.fps, 2000);
  EXPECT_EQ(format.bitrate, 1);
}

TEST(H264Format, FrameDurationIsInWholeUnitsOf100Nanoseconds) {
  EXPECT_EQ(FrameDuration(30), 333333);
  EXPECT_EQ(FrameDuration(15), 666666);
  EXPECT_EQ(FrameDuration(7), 1428571);
  EXPECT_EQ(FrameDuration(1), 10000000);
  EXPECT_EQ(FrameDuration(std::numeric_limits<std::int32_t>::max()), 0);
}

TEST(H264Format, PackedPairOfNumbersHasTheFirstNumberInItsHighHalf) {
  EXPECT_EQ(PackPair(1920, 1080), 0x00000780'00000438u);
  EXPECT_EQ(PackPair(1, -1), 0x00000001'FFFFFFFFu);
  EXPECT_EQ(PackPair(-1, 1), 0xFFFFFFFF'00000001u);
}

TEST(H264Format, Nv12PictureHasThreeBytesForTwoPixels) {
  EXPECT_EQ(Nv12Size(1920, 1080), 3110400u);
  EXPECT_EQ(Nv12Size(3, 3), 13u);
  EXPECT_EQ(Nv12Size(0, 100), 0u);
}

TEST(H264Format, Nv12CapacityIsEnoughForTheConversionAndTheEncoder) {
  EXPECT_EQ(Nv12Capacity(4, 4), 4u * 4 + 4 * 2 + 1);
  EXPECT_EQ(Nv12Capacity(3, 3), 3u * 3 + 3 * 2 + 1);
  for (std::int32_t width = 0; width <= 9; ++width) {
    for (std::int32_t height = 0; height <= 9; ++height)
      EXPECT_GE(Nv12Capacity(width, height), Nv12Size(width, height)) << width << " by " << height;
  }
}

TEST(H264Format, EmptyPictureNeedsNoMemory) {
  EXPECT_EQ(Nv12Capacity(0, 10), 0u);
  EXPECT_EQ(Nv12Capacity(10, 0), 0u);
  EXPECT_EQ(Nv12Capacity(-2, 10), 0u);
  EXPECT_EQ(Nv12Capacity(std::numeric_limits<std::int32_t>::min(), -1), 0u);
}

}  // namespace
}  // namespace vlk::agent
