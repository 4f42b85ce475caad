// The choice of format, where pixels begin, and the guard's arithmetic.
#include "clipboard/formats.h"

#include <gtest/gtest.h>

#include <set>

#include "clipboard/echo_guard.h"

namespace vlk::agent {
namespace {

std::optional<ClipboardKind> choose(std::set<std::uint32_t> formats) {
  return ChooseClipboardKind([&](std::uint32_t format) { return formats.contains(format); });
}

TEST(ClipboardChoice, FilesGoBeforeTextAndTextBeforeAnImage) {
  EXPECT_EQ(choose({8, 13, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({13, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({8, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({8, 13}), ClipboardKind::Text);
  EXPECT_EQ(choose({8}), ClipboardKind::Image);
}

TEST(ClipboardChoice, OtherFormatsAreNotShared) {
  EXPECT_EQ(choose({}), std::nullopt);
  EXPECT_EQ(choose({1, 2, 7, 16, 17, 0xC009}), std::nullopt);
}

TEST(BitmapPixels, BeginBehindThePalette) {
  EXPECT_EQ(BitmapPixelOffset({40, 1, 0, 0}), 40u + 2 * 4) << "a 1-bit bitmap has two colours";
  EXPECT_EQ(BitmapPixelOffset({40, 4, 0, 0}), 40u + 16 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 0, 0}), 40u + 256 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 0, 10}), 40u + 10 * 4) << "its own count goes first";
  EXPECT_EQ(BitmapPixelOffset({40, 8, 1, 0}), 40u + 256 * 4) << "compressed by runs";
  EXPECT_EQ(BitmapPixelOffset({40, 0, 5, 0}), 40u + 1 * 4) << "no bit count, as in an embedded file";
}

TEST(BitmapPixels, BeginAtOnceWhereColoursAreDirect) {
  EXPECT_EQ(BitmapPixelOffset({40, 9, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 24, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 32, 0, 0}), 40u);
  EXPECT_EQ(BitmapPixelOffset({40, 24, 0, 7}), 40u) << "a count of colours means nothing here";
}

TEST(BitmapPixels, BeginBehindThreeMasks) {
  EXPECT_EQ(BitmapPixelOffset({40, 32, 3, 0}), 40u + 3 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 16, 3, 9}), 40u + 3 * 4);
  EXPECT_EQ(BitmapPixelOffset({40, 8, 3, 9}), 40u + 3 * 4) << "in all cases";
  EXPECT_EQ(BitmapPixelOffset({124, 32, 3, 0}), 124u + 3 * 4) << "with the later headers too";
}

TEST(BitmapPixels, SizesDoNotWrap) {
  EXPECT_EQ(BitmapPixelOffset({0xFFFFFFFF, 8, 0, 0xFFFFFFFF}), 0xFFFFFFFFull * 5);
}

TEST(EchoGuard, HoldsForHalfASecond) {
  const std::uint32_t until = EchoGuardUntil(1000);
  EXPECT_EQ(until, 1500u);
  EXPECT_TRUE(EchoGuardHolds(1000, until));
  EXPECT_TRUE(EchoGuardHolds(1100, until));
  EXPECT_TRUE(EchoGuardHolds(1499, until));
  EXPECT_FALSE(EchoGuardHolds(1500, until));
  EXPECT_FALSE(EchoGuardHolds(1600, until));
}

TEST(EchoGuard, IsOpenBeforeAnythingWasApplied) {
  EXPECT_FALSE(EchoGuardHolds(0, 0));
  EXPECT_FALSE(EchoGuardHolds(0xFFFFFFFF, 0));
}

TEST(EchoGuard, ThatWrapsIsOverAtOnce) {
  const std::uint32_t until = EchoGuardUntil(0xFFFFFFFF - 99);
  EXPECT_EQ(until, 400u);
  EXPECT_FALSE(EchoGuardHolds(0xFFFFFFFF, until)) << "the update passes through";
  EXPECT_TRUE(EchoGuardHolds(0, until)) << "behind the wrap it holds again";
  EXPECT_EQ(EchoGuardUntil(0xFFFFFFFF - 499), 0u);
  EXPECT_EQ(EchoGuardUntil(0xFFFFFFFF - 500), 0xFFFFFFFFu);
}

}  // namespace
}  // namespace vlk::agent
