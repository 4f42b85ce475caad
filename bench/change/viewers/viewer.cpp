// Records what a viewer sees.
#include "viewers/viewer.h"

#include <cmath>
#include <stdexcept>

#include "support/waiting.h"

namespace vantelink_bench {

Received Viewer::received() const {
  const std::lock_guard lock(mutex_);
  if (!failure_.empty()) throw std::runtime_error(failure_);
  return received_;
}

std::vector<Moment> Viewer::seen() const {
  const std::lock_guard lock(mutex_);
  return seen_;
}

void Viewer::see(std::uint32_t number, std::uint64_t bytes_so_far) {
  const Clock::time_point now = Clock::now();
  const std::lock_guard lock(mutex_);
  ++received_.pictures;
  received_.bytes = bytes_so_far;
  seen_.push_back({number, now});
}

void Viewer::see(const Moment& picture, const Received& so_far) {
  const std::lock_guard lock(mutex_);
  received_ = so_far;
  seen_.push_back(picture);
}

void Viewer::fail(const std::string& why) {
  const std::lock_guard lock(mutex_);
  failure_ = why;
}

double likeness(const vantelink_test::PngPicture& screen, const std::uint8_t* pixels) {
  double squares = 0;
  for (std::size_t i = 0; i < screen.pixels.size(); ++i) {
    if (i % 4 == 3) continue;
    const double error = static_cast<std::uint8_t>(screen.pixels[i]) - pixels[i];
    squares += error * error;
  }
  const double mean = squares / (static_cast<double>(screen.pixels.size()) * 3 / 4);
  return mean == 0 ? 100 : 10 * std::log10(255.0 * 255.0 / mean);
}

void Viewer::wait_for_picture() const {
  if (!vantelink_test::eventually([&] { return received().pictures > 0; }))
    throw std::runtime_error("no picture arrives");
}

}  // namespace vantelink_bench
