// Fixture for tests that contain the duplication double: a cleared board with one output, and checks of what
// the program left open and of the calls that Windows forbids.
#pragma once

#include <cstdint>
#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "tests/doubles/dxgi/desktop_board.h"
#include "tests/doubles/scripted_picture.h"

namespace vlk::test {

struct Area {
  int left, top, width, height;
};

class DesktopDouble : public testing::Test {
 protected:
  void SetUp() override {
    std::memset(static_cast<void*>(&board_), 0, sizeof(board_));
    set_outputs({{0, 0, 320, 180}});
  }

  void TearDown() override {
    EXPECT_EQ(board_.misuses, 0) << "the last was DesktopMisuse " << board_.last_misuse;
    EXPECT_EQ(board_.references, 0) << "references are not released";
    EXPECT_EQ(board_.live, 0) << "objects are not released";
  }

  // Each output is on an adapter of its own.
  void set_outputs(const std::vector<Area>& areas) {
    for (std::size_t i = 0; i < areas.size(); ++i) {
      vantelink_doubles::OutputCells& output = board_.outputs[i];
      output.adapter = static_cast<std::int32_t>(i);
      output.left = areas[i].left;
      output.top = areas[i].top;
      output.width = areas[i].width;
      output.height = areas[i].height;
    }
    board_.output_count = static_cast<std::int32_t>(areas.size());
  }

  // The pixels of the desktop's last picture.
  std::vector<std::uint8_t> picture(std::uint32_t width, std::uint32_t height,
                                    std::uint32_t place = 0) const {
    std::vector<std::uint8_t> pixels(std::size_t{width} * height * 4);
    vantelink_doubles::paint_picture(pixels.data(), width, height, std::size_t{width} * 4,
                                     static_cast<std::uint32_t>(board_.frames), place);
    return pixels;
  }

  vantelink_doubles::DesktopBoard& board_ = vantelink_doubles::desktop_board();
};

}  // namespace vlk::test
