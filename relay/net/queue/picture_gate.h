// Decides which pictures of one stream are queued for a viewer who reads too slowly: fewer pictures, never
// old ones.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "relay/base/clock.h"

namespace vlk::relay {

enum class PictureKind : std::uint8_t {
  Settings,  // the message that begins a new stream
  Complete,  // a picture that needs no other and that no other needs, such as a JPEG file
  Key,       // a picture that needs no other and begins a group
  Delta,     // a picture that needs all pictures of its group before it
};

// The state of one stream to one viewer.
class PictureGate {
 public:
  enum class Ruling : std::uint8_t {
    Add,      // the picture is queued
    Replace,  // the picture is queued, and the queued ones that nothing was sent of yet are dropped
    Drop,     // the picture is dropped, and so are the queued ones that need others; a key frame is needed
  };
  // The stream's queued pictures have so many bytes, and the first of them has waited for so long.
  [[nodiscard]] Ruling decide(PictureKind kind, std::size_t queued_bytes, Clock::duration waited) {
    if (kind != PictureKind::Delta) {
      needs_key_ = false;
      return Ruling::Replace;
    }
    if (queued_bytes > kMostBytes || waited > kLongestWait) needs_key_ = true;
    return needs_key_ ? Ruling::Drop : Ruling::Add;
  }

  // A picture that waits longer is too old. The time is longer than a usual gap in the arrival of
  // confirmations, and about the delay at which a person notices that the picture follows the mouse late.
  static constexpr std::chrono::milliseconds kLongestWait{200};
  static constexpr std::size_t kMostBytes = std::size_t{8} << 20;

 private:
  bool needs_key_ = false;
};

}  // namespace vlk::relay
