// A window over the whole of Wine's virtual desktop, drawn by Xlib. Xlib's header is not included here,
// because its macros have common names.
#pragma once

#include <memory>
#include <string>

#include "e2e/support/png_codec.h"
#include "screen/content.h"

namespace vantelink_bench {

class CoveringWindow {
 public:
  // Waits until Wine's desktop has a window on the display, and puts the pointer into the bottom right
  // corner. Throws std::runtime_error if there is no such window in time, or no display.
  explicit CoveringWindow(const std::string& display);
  ~CoveringWindow();
  CoveringWindow(const CoveringWindow&) = delete;
  CoveringWindow& operator=(const CoveringWindow&) = delete;

  int width() const;
  int height() const;
  void show();  // above the windows of Wine's programs
  void hide();
  // Whether another window has covered a part of this one since show().
  bool was_covered();
  void fill(std::uint32_t colour);
  // Draws pixels, `width` in a row, at this place.
  void put(const Pixels& pixels, int left, int top, int width);
  // Moves the `height` rows from `top` on up by `rows`.
  void move_up(int top, int height, int rows);
  // Keeps pixels, `width` in a row, in memory that the X server shares. Called once.
  void store_film(const Pixels& pixels, int width, int height);
  // Draws the rows from `row` on of the stored pixels.
  void put_film(int row, int rows, int left, int top);
  // Returns after the X server has drawn all.
  void finish();
  // What is on the screen, all windows included.
  vantelink_test::PngPicture screen() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vantelink_bench
