// Counts the replacements of each identity's connections.
#include "relay/admission/identity_fights.h"

#include <algorithm>

namespace vlk::relay {

bool IdentityFights::replaced(const std::string& id, Clock::duration age, Clock::time_point now) {
  if (age >= kShortLife) {
    forget(id);
    return false;
  }
  if (!replacements_.contains(id) && replacements_.size() >= kIdentities) make_room();
  auto& times = replacements_[id];
  times.push_back(now);
  while (now - times.front() > kWindow)
    times.pop_front();
  if (times.size() < kReplacements) return false;
  forget(id);
  return true;
}

void IdentityFights::make_room() {
  replacements_.erase(std::min_element(replacements_.begin(), replacements_.end(),
                                       [](auto& a, auto& b) { return a.second.back() < b.second.back(); }));
}

}  // namespace vlk::relay
