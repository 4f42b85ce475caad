// Starts the program and presses the keys.
#include "keys.h"

#include <signal.h>

#include <filesystem>
#include <random>
#include <stdexcept>
#include <thread>

namespace vantelink_bench {

namespace {

// The program on the desk. Throws std::runtime_error if it is not built.
std::string program() {
  std::string path = VANTELINK_SOURCE_DIR "/build/windows/tests/change_keys.exe";
  if (!std::filesystem::exists(path))
    throw std::runtime_error(path + " is not built; './dev bench change' builds it");
  return path;
}

}  // namespace

Keys::Keys(const vantelink_test::Desk& desk, std::uint32_t first)
    : program_(desk.spawn({program(), std::to_string(first)})), first_{first, Clock::now()} {}

Keys::~Keys() {
  ::kill(program_, SIGKILL);
}

std::vector<Moment> Keys::press(Viewer& viewer, Clock::duration time) {
  std::minstd_rand random(1);
  std::uniform_int_distribution<int> pause(250, 550);  // milliseconds
  const Clock::time_point end = Clock::now() + time;
  std::vector<Moment> presses;
  std::uint32_t number = first_.number;
  for (;;) {
    const Clock::time_point next = Clock::now() + std::chrono::milliseconds(pause(random));
    if (next >= end) return presses;
    std::this_thread::sleep_until(next);
    presses.push_back({++number, Clock::now()});
    viewer.press_key();
  }
}

}  // namespace vantelink_bench
