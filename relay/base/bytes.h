// Byte arrays, and a reader of the big-endian numbers in them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace vlk::relay {

using Bytes = std::vector<std::uint8_t>;

// Reads big-endian numbers and runs of bytes, one after the other. A read past the end returns nothing and
// consumes nothing.
class ByteReader {
 public:
  // The bytes must outlive the reader.
  explicit ByteReader(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  [[nodiscard]] std::optional<std::uint32_t> u32() {
    const auto value = number(4);
    if (!value) return std::nullopt;
    return static_cast<std::uint32_t>(*value);
  }
  [[nodiscard]] std::optional<std::uint64_t> u64() { return number(8); }

  [[nodiscard]] std::optional<std::string_view> take(std::uint64_t size) {
    if (size > rest_.size()) return std::nullopt;
    const auto run = rest_.first(static_cast<std::size_t>(size));
    rest_ = rest_.subspan(run.size());
    return std::string_view(reinterpret_cast<const char*>(run.data()), run.size());
  }

 private:
  std::optional<std::uint64_t> number(std::size_t size) {
    const auto run = take(size);
    if (!run) return std::nullopt;
    std::uint64_t value = 0;
    for (const char byte : *run)
      value = value << 8 | static_cast<std::uint8_t>(byte);
    return value;
  }

  std::span<const std::uint8_t> rest_;
};

}  // namespace vlk::relay
