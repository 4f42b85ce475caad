// Prevents received content from being sent back: for a short time after the agent has put content on the
// clipboard, all changes of the clipboard are ignored, including the user's.
#pragma once

#include <cstdint>

namespace vlk::agent {

inline constexpr std::uint32_t kEchoGuardTime = 500;  // milliseconds

// Changes of the clipboard before this tick are not sent. Used on the UI thread only.
inline std::uint32_t ClipboardEchoGuardUntil = 0;

// The tick until which changes are ignored if the agent changes the clipboard at tick `now`. Ticks count
// milliseconds and wrap around at 2^32.
[[nodiscard]] constexpr std::uint32_t EchoGuardUntil(std::uint32_t now) {
  return now + kEchoGuardTime;
}

// Whether changes at tick `now` are still ignored. The comparison deliberately does not allow for the
// wrap-around: if `until` has wrapped to a small number, changes are no longer ignored.
[[nodiscard]] constexpr bool EchoGuardHolds(std::uint32_t now, std::uint32_t until) {
  return now < until;
}

}  // namespace vlk::agent
