// What keeps applied content from being sent straight back: for a moment after it, changes of the clipboard
// are not looked at, the user's own among them.
#pragma once

#include <cstdint>

namespace vlk::agent {

inline constexpr std::uint32_t kEchoGuardTime = 500;  // milliseconds

// Changes before this tick are not sent. The UI thread's.
inline std::uint32_t ClipboardEchoGuardUntil = 0;

// The tick that ends the guard of content applied at `now`; both count milliseconds and wrap at 2^32.
constexpr std::uint32_t EchoGuardUntil(std::uint32_t now) {
  return now + kEchoGuardTime;
}

// Deliberately a plain comparison: a guard that wraps to a small number is over at once.
constexpr bool EchoGuardHolds(std::uint32_t now, std::uint32_t until) {
  return now < until;
}

}  // namespace vlk::agent
