// The GDI calls of captures and thumbnails: the operation and the scaling that they ask for, and the black
// picture that each failing call gives.
#include <algorithm>

#include <gtest/gtest.h>

#include "stream/capture/capture.h"
#include "stream/capture/monitors.h"
#include "tests/windows/stream/capture/gdi_seam.h"
#include "tests/windows/support/holdings.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::gdi_script;
using test::screen_height;
using test::screen_width;

// SRCCOPY with CAPTUREBLT, which copies layered windows as well.
constexpr DWORD kCopyWithLayers = 0x40CC0020;
constexpr int kHalftone = 4;

class GdiCalls : public testing::Test {
 protected:
  void SetUp() override { gdi_script = {}; }
  void TearDown() override { gdi_script = {}; }

  static bool IsBlack(const std::vector<std::uint8_t>& pixels) {
    return std::all_of(pixels.begin(), pixels.end(), [](std::uint8_t byte) { return byte == 0; });
  }
};

test::Colour grey(int, int) {
  return {99, 99, 99};
}

TEST_F(GdiCalls, CaptureCopiesThePrimaryScreenWithItsLayeredWindows) {
  ScreenCapturer capturer;
  CapturedFrame frame;
  EXPECT_TRUE(capturer.CaptureGdi(frame));
  EXPECT_EQ(gdi_script.copy_operation, kCopyWithLayers);
  EXPECT_EQ(gdi_script.source.left, 0);
  EXPECT_EQ(gdi_script.source.top, 0);
  EXPECT_EQ(gdi_script.source.right, screen_width());
  EXPECT_EQ(gdi_script.source.bottom, screen_height());
}

TEST_F(GdiCalls, ThumbnailIsScaledInHalftonesFromTheScreenWithItsLayeredWindows) {
  EXPECT_FALSE(CaptureThumbnails(320).empty());
  EXPECT_EQ(gdi_script.stretch_operation, kCopyWithLayers);
  EXPECT_EQ(gdi_script.stretch_mode, kHalftone);
}

TEST_F(GdiCalls, CaptureWithAFailingCallIsABlackFrame) {
  const test::PaintedWindow window(0, 0, screen_width(), screen_height(), grey);
  CapturedFrame shown;
  ScreenCapturer capturer;
  ASSERT_TRUE(test::pump_until([&] {
    capturer.CaptureGdi(shown);
    return std::count(shown.pixels.begin(), shown.pixels.end(), 99) > screen_width() * screen_height();
  }));
  for (const char* const call :
       {"GetDC", "CreateCompatibleDC", "CreateCompatibleBitmap", "SelectObject", "BitBlt", "GetDIBits"}) {
    SCOPED_TRACE(call);
    gdi_script = {};
    gdi_script.failing = call;
    CapturedFrame frame;
    frame.fresh = false;
    EXPECT_TRUE(capturer.CaptureGdi(frame));
    EXPECT_TRUE(frame.fresh);
    EXPECT_EQ(frame.width, static_cast<std::uint32_t>(screen_width()));
    EXPECT_EQ(frame.height, static_cast<std::uint32_t>(screen_height()));
    EXPECT_EQ(frame.pixels.size(), shown.pixels.size());
    EXPECT_TRUE(IsBlack(frame.pixels));
  }
}

TEST_F(GdiCalls, ThumbnailWithAFailingCallIsBlack) {
  const test::PaintedWindow window(0, 0, screen_width(), screen_height(), grey);
  ASSERT_TRUE(test::pump_until([] { return !IsBlack(CaptureThumbnails(320).at(0).pixels); }));
  for (const char* const call :
       {"GetDC", "CreateCompatibleDC", "CreateCompatibleBitmap", "SelectObject", "StretchBlt", "GetDIBits"}) {
    SCOPED_TRACE(call);
    gdi_script = {};
    gdi_script.failing = call;
    const auto thumbnails = CaptureThumbnails(320);
    ASSERT_EQ(thumbnails.size(), EnumerateMonitors().size());
    const ThumbnailSize size = FitThumbnail(screen_width(), screen_height(), 320);
    EXPECT_EQ(thumbnails[0].pixels.size(), static_cast<std::size_t>(size.width * size.height * 4));
    EXPECT_TRUE(IsBlack(thumbnails[0].pixels));
  }
}

TEST_F(GdiCalls, NothingStaysOpenWhicheverCallFails) {
  ScreenCapturer capturer;
  const auto capture = [&] {
    CapturedFrame frame;
    EXPECT_TRUE(capturer.CaptureGdi(frame));
    EXPECT_FALSE(CaptureThumbnails(320).empty());
  };
  capture();
  capture();
  const DWORD before = test::gdi_objects();
  const int runs = vantelink_test::fail_each_call([&](vantelink_test::FailNth& failure) {
    gdi_script.failure = &failure;
    capture();
    gdi_script.failure = nullptr;
    EXPECT_EQ(test::gdi_objects(), before);
  });
  EXPECT_GT(runs, 12) << "the calls of a capture and of a thumbnail";
}

}  // namespace
}  // namespace vlk::agent
