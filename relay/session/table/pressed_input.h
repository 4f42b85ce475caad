// The keys and mouse buttons that each session has pressed on its machine. An agent leaves them down until
// somebody releases them, also after the session.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <span>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Used on the relay's one thread.
class PressedInput {
 public:
  // Notes what an InputEvent of the session presses and releases. `payload` is the one of the message; the
  // agent ignores a payload that is not valid as a whole, and so does this function.
  // Returns whether the payload contains more than moves of the pointer.
  bool note(std::uint32_t session, std::span<const std::uint8_t> payload);
  // Leaves in the InputEvent `message` only the events that release what the session has pressed. Returns
  // false if none is left.
  [[nodiscard]] bool keep_releases(std::uint32_t session, Bytes& message) const;
  // The InputEvent that releases everything that the session has pressed, and forgets it. Null if nothing is
  // pressed.
  [[nodiscard]] std::shared_ptr<const Bytes> release(std::uint32_t session);
  // Forgets a session whose machine is not connected any more.
  void forget(std::uint32_t session) { sessions_.erase(session); }

  // One InputEvent has room for so many releases. What is pressed beyond is not noted; no keyboard has as
  // many keys.
  static constexpr std::size_t kMost = 255;

 private:
  // The bytes of the event that releases a key or button, without unused ones at the end.
  using Release = std::array<std::uint8_t, 7>;

  std::map<std::uint32_t, std::set<Release>> sessions_;
};

}  // namespace vlk::relay
