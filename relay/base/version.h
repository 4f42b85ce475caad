// The relay's version; no other source file states it. See docs/versioning.md for when to raise it.
#pragma once

namespace vlk::relay {

inline constexpr char kRelayVersion[] = "0.1.0";

}  // namespace vlk::relay
