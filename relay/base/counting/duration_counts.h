// Counts durations by their length, for the statistics of operators.
#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vlk::relay {

// Used on one thread. Counting takes a few comparisons and no memory.
class DurationCounts {
 public:
  // The longest duration of each class but the last, which has no longest.
  static constexpr std::array<std::chrono::milliseconds, 13> kBounds{
      std::chrono::milliseconds(1),     std::chrono::milliseconds(2),     std::chrono::milliseconds(5),
      std::chrono::milliseconds(10),    std::chrono::milliseconds(20),    std::chrono::milliseconds(50),
      std::chrono::milliseconds(100),   std::chrono::milliseconds(200),   std::chrono::milliseconds(500),
      std::chrono::milliseconds(1'000), std::chrono::milliseconds(2'000), std::chrono::milliseconds(5'000),
      std::chrono::milliseconds(10'000)};

  void add(std::chrono::nanoseconds duration) {
    ++counts_[static_cast<std::size_t>(std::lower_bound(kBounds.begin(), kBounds.end(), duration) -
                                       kBounds.begin())];
    sum_ += duration;
  }
  // The number of durations in each class.
  [[nodiscard]] const std::array<std::uint64_t, kBounds.size() + 1>& classes() const { return counts_; }
  [[nodiscard]] std::chrono::nanoseconds sum() const { return sum_; }
  // The longest duration of the class below whose end this part of all durations lies, from 0 to 1; nothing
  // if that is the last class, or if there are no durations.
  [[nodiscard]] std::optional<std::chrono::milliseconds> bound_of(double part) const {
    std::uint64_t all = 0;
    for (const std::uint64_t count : counts_)
      all += count;
    std::uint64_t below = 0;
    for (std::size_t i = 0; i < kBounds.size() && all > 0; ++i) {
      below += counts_[i];
      if (static_cast<double>(below) >= part * static_cast<double>(all)) return kBounds[i];
    }
    return std::nullopt;
  }

 private:
  std::array<std::uint64_t, kBounds.size() + 1> counts_{};
  std::chrono::nanoseconds sum_{};
};

}  // namespace vlk::relay
