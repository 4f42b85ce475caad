// Keeps applied content from being sent back: for a short time after it, all changes of the clipboard are
// ignored, including the user's.
#pragma once

#include <cstdint>

namespace vlk::agent {

inline constexpr std::uint32_t kEchoGuardTime = 500;  // milliseconds

// Changes before this tick are not sent. UI thread only.
inline std::uint32_t ClipboardEchoGuardUntil = 0;

// The tick at which the guard of content applied at `now` ends. Both count milliseconds and wrap around at
// 2^32.
[[nodiscard]] constexpr std::uint32_t EchoGuardUntil(std::uint32_t now) {
  return now + kEchoGuardTime;
}

// Whether changes at `now` are still ignored. Deliberately a plain comparison: a guard that wraps to a small
// number ends at once.
[[nodiscard]] constexpr bool EchoGuardHolds(std::uint32_t now, std::uint32_t until) {
  return now < until;
}

}  // namespace vlk::agent
