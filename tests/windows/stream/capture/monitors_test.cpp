// The monitor list and thumbnails of the real desktop.
#include "stream/capture/monitors.h"

#include <gtest/gtest.h>

#include "tests/windows/support/holdings.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::Colour;
using test::screen_height;
using test::screen_width;

constexpr Colour kLeft = {200, 30, 10};
constexpr Colour kRight = {5, 90, 250};

TEST(Monitors, AreNumberedFromZeroAndIncludeThePrimaryScreen) {
  const auto monitors = EnumerateMonitors();
  ASSERT_FALSE(monitors.empty());
  bool primary = false;
  for (std::size_t i = 0; i < monitors.size(); ++i) {
    const MonitorInfo& monitor = monitors[i];
    EXPECT_EQ(monitor.id, static_cast<std::int32_t>(i));
    if (monitor.left == 0 && monitor.top == 0 && monitor.width == screen_width() &&
        monitor.height == screen_height()) {
      primary = true;
    }
  }
  EXPECT_TRUE(primary);
}

TEST(Monitors, ThumbnailShowsTheScaledScreen) {
  const test::PaintedWindow window(0, 0, screen_width(), screen_height(),
                                   [](int x, int) { return x < screen_width() / 2 ? kLeft : kRight; });
  const ThumbnailSize size = FitThumbnail(screen_width(), screen_height(), 320);
  std::vector<MonitorThumbnail> thumbnails;
  const auto shows_both_halves = [&] {
    thumbnails = CaptureThumbnails(320);
    const auto& pixels = thumbnails.at(0).pixels;
    for (int y = 0; y < size.height; ++y) {
      for (int x = 0; x < size.width; ++x) {
        const int middle = size.width / 2;
        if (x == middle - 1 || x == middle) continue;  // the two colours may blend there
        if (test::colour_at(pixels, size.width, x, y) != (x < middle ? kLeft : kRight)) return false;
      }
    }
    return true;
  };
  EXPECT_TRUE(test::pump_until(shows_both_halves));
  ASSERT_EQ(thumbnails.size(), EnumerateMonitors().size());
  EXPECT_EQ(thumbnails[0].id, 0);
  EXPECT_EQ(thumbnails[0].width, size.width);
  EXPECT_EQ(thumbnails[0].height, size.height);
  EXPECT_EQ(thumbnails[0].pixels.size(), static_cast<std::size_t>(size.width * size.height * 4));
}

TEST(Monitors, LimitAboveTheScreenSizeGivesAnUnscaledThumbnail) {
  const test::PaintedWindow window(30, 40, 100, 50);
  EXPECT_TRUE(test::pump_until([] {
    const auto thumbnails = CaptureThumbnails(100000);
    EXPECT_EQ(thumbnails.at(0).width, screen_width());
    EXPECT_EQ(thumbnails[0].height, screen_height());
    return test::shows_pattern(thumbnails[0].pixels, screen_width(), 30, 40, 100, 50);
  }));
}

TEST(Monitors, ListsAndThumbnailsLeaveNothingOpen) {
  EXPECT_EQ(test::left_open_by([] { CaptureThumbnails(320); }, 20), test::Holdings());
}

}  // namespace
}  // namespace vlk::agent
