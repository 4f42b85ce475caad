// Thumbnails of several monitors, compared with what the real screen shows at each monitor's place.
#include <windows.h>

#include "stream/capture/monitors.h"
#include "tests/windows/stream/duplication/desktop_fixture.h"
#include "tests/windows/support/painted_window.h"

namespace vlk::agent {
namespace {

using test::Colour;
using test::screen_height;
using test::screen_width;

constexpr Colour kLeft = {200, 30, 10};
constexpr Colour kRight = {5, 90, 250};
constexpr int kBorder = 640;  // column at which the two colours meet

class StrictThumbnails : public test::DesktopDouble {
 protected:
  // Whether the picture is the part of the screen's pattern whose upper left corner is (left, top).
  static bool ShowsPatternFrom(const MonitorThumbnail& thumbnail, int left, int top) {
    for (int y = 0; y < thumbnail.height; ++y) {
      for (int x = 0; x < thumbnail.width; ++x) {
        if (test::colour_at(thumbnail.pixels, thumbnail.width, x, y) != test::pattern(left + x, top + y))
          return false;
      }
    }
    return true;
  }

  // Whether the columns before `border` have the left colour and the others the right one. The two colours
  // may blend in the columns next to the border.
  static bool ShowsColoursUpTo(const MonitorThumbnail& thumbnail, int border) {
    for (int y = 0; y < thumbnail.height; ++y) {
      for (int x = 0; x < thumbnail.width; ++x) {
        if (x == border - 1 || x == border) continue;
        if (test::colour_at(thumbnail.pixels, thumbnail.width, x, y) != (x < border ? kLeft : kRight))
          return false;
      }
    }
    return true;
  }
};

TEST_F(StrictThumbnails, ThreeMonitorsHaveThreeThumbnailsOfTheirOwnPartsOfTheScreen) {
  const std::vector<test::Area> areas = {{0, 0, 300, 200}, {500, 100, 320, 240}, {901, 403, 201, 303}};
  set_outputs(areas);
  const test::PaintedWindow window(0, 0, screen_width(), screen_height());
  std::vector<MonitorThumbnail> thumbnails;
  EXPECT_TRUE(test::pump_until([&] {
    thumbnails = CaptureThumbnails(320);
    if (thumbnails.size() != areas.size()) return false;
    for (std::size_t i = 0; i < areas.size(); ++i) {
      if (!ShowsPatternFrom(thumbnails[i], areas[i].left, areas[i].top)) return false;
    }
    return true;
  }));
  ASSERT_EQ(thumbnails.size(), areas.size());
  for (std::size_t i = 0; i < areas.size(); ++i) {
    EXPECT_EQ(thumbnails[i].id, static_cast<std::int32_t>(i));
    EXPECT_EQ(thumbnails[i].width, areas[i].width);
    EXPECT_EQ(thumbnails[i].height, areas[i].height);
  }
}

TEST_F(StrictThumbnails, ScaledThumbnailShowsTheWholeMonitorAndNothingElse) {
  // The colours meet at a half of the first monitor and at three quarters of the second.
  set_outputs({{kBorder - 320, 90, 640, 360}, {kBorder - 480, 200, 640, 400}});
  const test::PaintedWindow window(0, 0, screen_width(), screen_height(),
                                   [](int x, int) { return x < kBorder ? kLeft : kRight; });
  EXPECT_TRUE(test::pump_until([] {
    const auto thumbnails = CaptureThumbnails(320);
    EXPECT_EQ(thumbnails.size(), 2u);
    return ShowsColoursUpTo(thumbnails.at(0), 160) && ShowsColoursUpTo(thumbnails.at(1), 240);
  }));
}

TEST_F(StrictThumbnails, PrimaryScreenIsShownInFullIfNoOutputIsAttached) {
  set_outputs({{100, 100, 300, 200}});
  board_.outputs[0].unattached = 1;
  const test::PaintedWindow window(0, 0, screen_width(), screen_height());
  const int longer_side = screen_width() > screen_height() ? screen_width() : screen_height();
  EXPECT_TRUE(test::pump_until([&] {
    const auto thumbnails = CaptureThumbnails(longer_side);
    EXPECT_EQ(thumbnails.size(), 1u);
    EXPECT_EQ(thumbnails.at(0).id, 0);
    EXPECT_EQ(thumbnails[0].width, screen_width());
    EXPECT_EQ(thumbnails[0].height, screen_height());
    return ShowsPatternFrom(thumbnails[0], 0, 0);
  }));
  const ThumbnailSize size = FitThumbnail(screen_width(), screen_height(), 320);
  const auto scaled = CaptureThumbnails(320);
  ASSERT_EQ(scaled.size(), 1u);
  EXPECT_EQ(scaled[0].width, size.width);
  EXPECT_EQ(scaled[0].height, size.height);
}

TEST_F(StrictThumbnails, ThumbnailOfATurnedMonitorIsUpright) {
  set_outputs({{600, 50, 180, 320}});
  board_.outputs[0].rotation = 2;  // by 90 degrees
  const test::PaintedWindow window(0, 0, screen_width(), screen_height());
  EXPECT_TRUE(test::pump_until([] {
    const auto thumbnails = CaptureThumbnails(320);
    EXPECT_EQ(thumbnails.at(0).width, 180);
    EXPECT_EQ(thumbnails[0].height, 320);
    return ShowsPatternFrom(thumbnails[0], 600, 50);
  }));
}

}  // namespace
}  // namespace vlk::agent
