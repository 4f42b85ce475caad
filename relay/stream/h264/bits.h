// Reads and writes the bits of H.264 headers, the most significant bit first (ITU-T H.264, 7.2, 7.4.1
// and 9.1).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Reads bits. After a read past the end, or a number over 32 bits, failed() is true and each read returns 0.
class BitReader {
 public:
  // The bytes must outlive the reader.
  explicit BitReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  // Reads a number of `count` bits, at most 32.
  std::uint32_t bits(unsigned count) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < count; ++i)
      value = value << 1 | bit();
    return value;
  }

  // Reads an Exp-Golomb number, ue(v). The signed form, se(v), has the same bits.
  std::uint32_t golomb() {
    unsigned zeros = 0;
    while (!failed_ && bit() == 0) {
      if (++zeros > 31) failed_ = true;
    }
    return failed_ ? 0 : ((std::uint32_t{1} << zeros) - 1) + bits(zeros);
  }

  [[nodiscard]] bool failed() const { return failed_; }
  [[nodiscard]] std::size_t left() const { return bytes_.size() * 8 - at_; }  // bits not read yet

 private:
  std::uint32_t bit() {
    if (at_ >= bytes_.size() * 8) {
      failed_ = true;
      return 0;
    }
    const std::uint32_t value = bytes_[at_ / 8] >> (7 - at_ % 8) & 1u;
    ++at_;
    return value;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t at_ = 0;
  bool failed_ = false;
};

class BitWriter {
 public:
  void bits(std::uint32_t value, unsigned count) {
    for (unsigned i = count; i-- > 0;) {
      if (used_ % 8 == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<std::uint8_t>(bytes_.back() | (value >> i & 1u) << (7 - used_ % 8));
      ++used_;
    }
  }

  // Writes `value` as ue(v). It must be below 2^32 - 1.
  void golomb(std::uint32_t value) {
    unsigned zeros = 0;
    while (zeros < 31 && (value + 1) >> (zeros + 1) != 0)
      ++zeros;
    bits(0, zeros);
    bits(value + 1, zeros + 1);
  }

  // Appends the stop bit and returns all bytes.
  [[nodiscard]] Bytes finish() {
    bits(1, 1);
    return std::move(bytes_);
  }

 private:
  Bytes bytes_;
  std::size_t used_ = 0;  // bits written
};

// Remove and insert the emulation prevention bytes of a unit. `unit` may begin with the header byte or after
// it, because the header byte is never 0.
[[nodiscard]] Bytes without_emulation_bytes(std::span<const std::uint8_t> unit);
[[nodiscard]] Bytes with_emulation_bytes(std::span<const std::uint8_t> unit);

}  // namespace vlk::relay
