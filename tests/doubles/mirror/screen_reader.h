// Reads the changes and the pixels of an X display. Xlib's headers are not included here, because their
// macros replace names of other headers.
#pragma once

#include <memory>

#include "tests/doubles/mirror/picture_file.h"

namespace vantelink_doubles {

class ScreenReader {
 public:
  // Connects to the display that the environment variable DISPLAY names. Throws std::runtime_error if the
  // display lacks an extension or has another pixel format than blue, green, red, unused. When the display
  // ends, the process ends with status 0.
  ScreenReader();
  ~ScreenReader();
  ScreenReader(const ScreenReader&) = delete;
  ScreenReader& operator=(const ScreenReader&) = delete;

  // The connection. Directly after read_events(), it becomes readable when the next event arrives.
  int descriptor() const;

  // Reads the events that have arrived. Throws std::runtime_error if the screen is now too large for a slot.
  void read_events();

  // Whether the screen differs from the last published picture; true at the start. The display reports no
  // further change until publish().
  bool changed() const;

  // Publishes the screen's present content. After a failure, which a change of the screen's size can cause,
  // changed() stays true.
  void publish(PictureFile& file);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace vantelink_doubles
