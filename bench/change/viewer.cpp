// Records what a viewer sees.
#include "viewer.h"

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

void Viewer::fail(const std::string& why) {
  const std::lock_guard lock(mutex_);
  failure_ = why;
}

void Viewer::wait_for_picture() const {
  if (!vantelink_test::eventually([&] { return received().pictures > 0; }))
    throw std::runtime_error("no picture arrives");
}

}  // namespace vantelink_bench
