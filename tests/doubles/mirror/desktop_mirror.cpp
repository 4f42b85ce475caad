// Copies the pictures of an X display into a file that the duplication double maps, as long as a program
// waits for them. It waits for events and never polls; while no program is connected it reads no pixels.
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "tests/doubles/mirror/picture_file.h"
#include "tests/doubles/mirror/screen_reader.h"
#include "tests/doubles/mirror/waiters.h"

namespace vantelink_doubles {
namespace {

using Clock = std::chrono::steady_clock;

// A desktop is duplicated at most as often as a usual monitor shows it.
constexpr std::chrono::nanoseconds kShortestInterval{1000000000 / 60};

// Waits until a descriptor has something to read; while a picture is due, at most until `due`.
void wait_for_events(std::vector<pollfd>& descriptors, bool picture_due, Clock::time_point due) {
  timespec time = {};
  if (picture_due) {
    const auto left = std::max(std::chrono::nanoseconds(due - Clock::now()), std::chrono::nanoseconds(0));
    time.tv_nsec = left.count();
  }
  ::ppoll(descriptors.data(), descriptors.size(), picture_due ? &time : nullptr, nullptr);
}

// Runs until the owner's process ends. `owner` is a descriptor of the process, or -1 without an owner.
void run(const std::string& path, int owner) {
  ScreenReader screen;
  Waiters waiters;
  PictureFile file(path, waiters.port());
  screen.publish(file);
  std::printf("ready\n");
  std::fflush(stdout);
  std::vector<pollfd> descriptors;
  for (Clock::time_point due = Clock::now();;) {
    // Publishing can read events too, which the connection then does not report to ppoll().
    screen.read_events();
    waiters.follow_connections();
    if (!screen.changed()) {
      waiters.wake_new();
    } else if (!waiters.empty() && Clock::now() >= due) {
      due = Clock::now() + kShortestInterval;
      screen.publish(file);
      waiters.wake_all();
      continue;
    }
    descriptors = {{owner, POLLIN, 0}, {screen.descriptor(), POLLIN, 0}};
    waiters.add_descriptors(descriptors);
    wait_for_events(descriptors, screen.changed() && !waiters.empty(), due);
    if (descriptors.front().revents != 0) return;
  }
}

int usage() {
  std::fputs(
      "Usage: desktop_mirror FILE [PID]\n"
      "Copies the pictures of the X display DISPLAY to FILE until the display or process PID ends. Prints\n"
      "\"ready\" when FILE is valid.\n",
      stderr);
  return 2;
}

}  // namespace
}  // namespace vantelink_doubles

int main(int count, char** words) {
  using namespace vantelink_doubles;
  if (count < 2 || count > 3) return usage();
  int owner = -1;
  if (count == 3) {
    owner = static_cast<int>(::syscall(SYS_pidfd_open, std::atoi(words[2]), 0));
    if (owner < 0) return usage();
  }
  try {
    run(words[1], owner);
  } catch (const std::runtime_error& error) {
    std::fprintf(stderr, "desktop_mirror: %s\n", error.what());
    return 1;
  }
  return 0;
}
