// Reads a fuzz target's input as a sequence of values.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace vlk::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : left_(data, size) {}

  [[nodiscard]] bool empty() const { return left_.empty(); }
  // The next byte; 0 after the end.
  std::uint8_t byte() {
    if (left_.empty()) return 0;
    const std::uint8_t value = left_.front();
    left_ = left_.subspan(1);
    return value;
  }
  // As many bytes as the next byte says, or those that are left.
  std::vector<std::uint8_t> bytes() {
    const std::size_t count = std::min<std::size_t>(byte(), left_.size());
    std::vector<std::uint8_t> taken(left_.begin(), left_.begin() + static_cast<std::ptrdiff_t>(count));
    left_ = left_.subspan(count);
    return taken;
  }
  std::string text() {
    const std::vector<std::uint8_t> taken = bytes();
    return {taken.begin(), taken.end()};
  }

 private:
  std::span<const std::uint8_t> left_;
};

}  // namespace vlk::fuzz
