// Finds the window that admits a new machine.
#include "relay/admission/enrolment_windows.h"

#include <algorithm>
#include <iterator>

namespace vlk::relay {
namespace {

bool open(const EnrolmentWindow& window, std::int64_t now) {
  return now < window.until && window.machines_left.value_or(1) > 0;
}

}  // namespace

bool EnrolmentWindows::remove(std::int64_t id) {
  return std::erase_if(windows_, [&](const EnrolmentWindow& window) { return window.id == id; }) > 0;
}

std::optional<EnrolmentWindow> EnrolmentWindows::admit(std::int64_t now) {
  EnrolmentWindow* first = nullptr;
  for (EnrolmentWindow& window : windows_) {
    if (open(window, now) && (!first || window.until < first->until)) first = &window;
  }
  if (!first) return std::nullopt;
  if (first->machines_left) --*first->machines_left;
  return *first;
}

void EnrolmentWindows::give_back(std::int64_t id) {
  for (EnrolmentWindow& window : windows_) {
    if (window.id == id && window.machines_left) ++*window.machines_left;
  }
}

std::vector<EnrolmentWindow> EnrolmentWindows::take_closed(std::int64_t now) {
  const auto closed = std::stable_partition(windows_.begin(), windows_.end(),
                                            [&](const EnrolmentWindow& window) { return open(window, now); });
  std::vector<EnrolmentWindow> result(std::make_move_iterator(closed),
                                      std::make_move_iterator(windows_.end()));
  windows_.erase(closed, windows_.end());
  return result;
}

}  // namespace vlk::relay
