// The offset of a bitmap's pixels.
#include "clipboard/bitmap_layout.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

TEST(BitmapPixels, BeginAfterThePalette) {
  EXPECT_EQ(BitmapPixelOffset({40, 1, 0, 0}), 40u + 2 * 4) << "a 1-bit bitmap has two colours";
  EXPECT_EQ(BitmapPixelOffset({40, 4, 0, 0}), 40u + 16 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 0, 0}), 40u + 256 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 0, 10}), 40u + 10 * 4) << "the header's count takes precedence";
  EXPECT_EQ(BitmapPixelOffset({40, 8, 1, 0}), 40u + 256 * 4) << "run-length encoded";
  EXPECT_EQ(BitmapPixelOffset({40, 0, 5, 0}), 40u + 1 * 4)
      << "a bitmap with an embedded file has no bit count";
}

TEST(BitmapPixels, BeginAfterTheHeaderWithoutAPalette) {
  EXPECT_EQ(BitmapPixelOffset({40, 9, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 24, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 32, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 24, 0, 7}), 40u)
      << "the header's count of colours is ignored without a palette";
}

TEST(BitmapPixels, BeginAfterThreeMasks) {
  EXPECT_EQ(BitmapPixelOffset({40, 32, 3, 0}), 40u + 3 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 16, 3, 9}), 40u + 3 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 3, 9}), 40u + 3 * 4) << "a palette is not counted in addition";
  EXPECT_EQ(BitmapPixelOffset({124, 32, 3, 0}), 124u + 3 * 4) << "a longer header has the masks after it too";
}

TEST(BitmapPixels, OffsetOfThePixelsIsComputedWithoutOverflow) {
  EXPECT_EQ(BitmapPixelOffset({0xFFFFFFFF, 8, 0, 0xFFFFFFFF}), 0xFFFFFFFFull * 5);
}

}  // namespace
}  // namespace vlk::agent
