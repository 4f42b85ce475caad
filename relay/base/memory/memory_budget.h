// A common limit for the memory of several owners.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <utility>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Used on the relay's one thread.
class MemoryBudget {
 public:
  explicit MemoryBudget(std::size_t bytes) : bytes_(bytes) {}

  // A share of the budget, which is returned at the end of the claim's life. A claim may outlive its budget.
  class Claim {
   public:
    Claim() = default;
    Claim(Claim&& other) noexcept : used_(std::move(other.used_)), bytes_(std::exchange(other.bytes_, 0)) {}
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;
    Claim& operator=(Claim&& other) noexcept {
      std::swap(used_, other.used_);
      std::swap(bytes_, other.bytes_);
      return *this;
    }
    ~Claim() {
      if (used_) *used_ -= bytes_;
    }
    [[nodiscard]] explicit operator bool() const { return used_ != nullptr; }

   private:
    friend class MemoryBudget;
    Claim(std::shared_ptr<std::size_t> used, std::size_t bytes) : used_(std::move(used)), bytes_(bytes) {
      *used_ += bytes_;
    }

    std::shared_ptr<std::size_t> used_;
    std::size_t bytes_ = 0;
  };

  // Returns an empty claim if less than `bytes` is left.
  [[nodiscard]] Claim claim(std::size_t bytes) { return claim(bytes, bytes_); }
  // Returns an empty claim if more than `most` bytes would then be in use.
  [[nodiscard]] Claim claim(std::size_t bytes, std::size_t most) {
    const std::size_t limit = std::min(most, bytes_);
    return *used_ > limit || bytes > limit - *used_ ? Claim{} : Claim{used_, bytes};
  }
  [[nodiscard]] std::size_t used() const { return *used_; }

 private:
  const std::size_t bytes_;
  const std::shared_ptr<std::size_t> used_ = std::make_shared<std::size_t>(0);
};

// The message for a channel's queue. The claim is returned when the last copy of the pointer is gone.
[[nodiscard]] inline std::shared_ptr<const Bytes> hold(Bytes message, MemoryBudget::Claim claim) {
  struct Held {
    Bytes message;
    MemoryBudget::Claim claim;
  };
  const auto held = std::make_shared<const Held>(Held{std::move(message), std::move(claim)});
  return {held, &held->message};
}

}  // namespace vlk::relay
