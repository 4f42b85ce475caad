// The windows in which new machines are approved at once. Outside of them, a new machine waits until an
// administrator approves it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "relay/storage/machines/machine_store.h"

namespace vlk::relay {

// Used on the relay's one thread. Dates are in seconds since 1970.
class EnrolmentWindows {
 public:
  // Replaces all windows by the stored ones.
  void load(std::vector<EnrolmentWindow> windows) { windows_ = std::move(windows); }
  void add(EnrolmentWindow window) { windows_.push_back(std::move(window)); }
  // Returns false if there is no such window.
  bool remove(std::int64_t id);
  [[nodiscard]] const std::vector<EnrolmentWindow>& all() const { return windows_; }

  // Admits one machine by the open window that closes first, and counts the machine. Returns nothing if no
  // window is open.
  [[nodiscard]] std::optional<EnrolmentWindow> admit(std::int64_t now);
  // Takes back the count of one machine that could not be stored.
  void give_back(std::int64_t id);
  // Removes the windows that have closed, and returns them.
  std::vector<EnrolmentWindow> take_closed(std::int64_t now);

 private:
  std::vector<EnrolmentWindow> windows_;
};

}  // namespace vlk::relay
