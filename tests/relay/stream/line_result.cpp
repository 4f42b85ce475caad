// Sums up what a simulated line did.
#include <algorithm>
#include <array>
#include <cstdio>

#include "relay/stream/line_model.h"

namespace vlk::relay {

double ModelResult::age(double share, double from, double to) const {
  std::vector<double> ages;
  for (const Shown& picture : shown)
    if (picture.at >= from && picture.at < to) ages.push_back(1000 * picture.age);
  if (ages.empty()) return 1e9;
  const auto place = ages.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(ages.size() - 1));
  std::ranges::nth_element(ages, place);
  return *place;
}

double ModelResult::longest_gap(double from, double to) const {
  double longest = 0;
  double before = from;
  for (const Shown& picture : shown) {
    if (picture.at < from || picture.at >= to) continue;
    longest = std::max(longest, picture.at - before);
    before = picture.at;
  }
  return std::max(longest, to - before);
}

int ModelResult::steps_between(double from, double to) const {
  return static_cast<int>(
      std::ranges::count_if(steps, [&](const ModelStep& step) { return step.at >= from && step.at < to; }));
}

std::string ModelResult::summary() const {
  std::array<char, 160> text{};
  std::snprintf(text.data(), text.size(),
                "p50 %4.0f ms  p99 %5.0f ms  %2zu steps, the last after %3.0f s  %2d/s %5.2f Mbit/s",
                age(0.5), age(0.99), steps.size(), steps.empty() ? 0 : steps.back().at, last.fps,
                last.bitrate / 1e6);
  return text.data();
}

}  // namespace vlk::relay
