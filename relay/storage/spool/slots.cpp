// Takes the lowest free slots of a file and gives them back.
#include "relay/storage/spool/slots.h"

#include <algorithm>

namespace vlk::relay {

std::vector<SlotRun> Slots::take(std::uint64_t count) {
  std::vector<SlotRun> runs;
  std::size_t slot = lowest_;
  for (std::uint64_t left = count; left > 0; ++slot) {
    if (slot == bits_.size()) bits_.push_back(false);
    if (bits_[slot]) continue;
    bits_[slot] = true;
    --left;
    if (!runs.empty() && runs.back().first + runs.back().count == slot) {
      ++runs.back().count;
    } else {
      runs.push_back({static_cast<std::uint32_t>(slot), 1});
    }
  }
  // The slots between lowest_ and `slot` that were free are taken now.
  lowest_ = slot;
  taken_ += count;
  return runs;
}

void Slots::give_back(const std::vector<SlotRun>& runs) {
  for (const SlotRun& run : runs) {
    const auto first = bits_.begin() + static_cast<std::ptrdiff_t>(run.first);
    std::fill_n(first, run.count, false);
    lowest_ = std::min<std::size_t>(lowest_, run.first);
    taken_ -= run.count;
  }
  while (!bits_.empty() && !bits_.back())
    bits_.pop_back();
}

}  // namespace vlk::relay
