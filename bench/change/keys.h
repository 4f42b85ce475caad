// Keys that a viewer presses, and a Windows program that shows a new number for each of them.
#pragma once

#include <vector>

#include "support/desk/desk.h"
#include "viewers/viewer.h"

namespace vantelink_bench {

class Keys {
 public:
  // Starts the program on the desk. It shows `first` in the screen's top left corner, and the next number
  // after each key.
  Keys(const vantelink_test::Desk& desk, std::uint32_t first);
  ~Keys();
  Keys(const Keys&) = delete;
  Keys& operator=(const Keys&) = delete;

  Moment first() const { return first_; }
  // Presses a key about every 400 ms for this time. Returns the number that each gives, and when it was
  // pressed.
  std::vector<Moment> press(Viewer& viewer, Clock::duration time);

 private:
  pid_t program_;
  Moment first_;
};

}  // namespace vantelink_bench
