// Finds identities that two computers use at once, for instance after a disk was copied with the agent on it.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <unordered_map>

#include "relay/base/clock.h"

namespace vlk::relay {

// Two agents with one identity replace each other's connection without end: the relay closes the older
// connection, its agent connects again within seconds, and so on. One computer alone replaces its own
// connection only when it lost it without notice, and then nobody connects again after the relay has closed
// that connection. So an identity is used twice when its connections are replaced often and soon after their
// log-in. Used on the relay's one thread.
class IdentityFights {
 public:
  // How long a connection may have been logged in when its replacement counts. On a line with a round trip of
  // 600 ms an agent needs about 4 s from the close to the next log-in.
  static constexpr std::chrono::seconds kShortLife{10};
  // So many replacements within this time are a fight.
  static constexpr std::size_t kReplacements = 6;
  static constexpr std::chrono::seconds kWindow{60};
  // The largest number of identities that are observed. A further one takes the place of the one whose last
  // replacement is oldest.
  static constexpr std::size_t kIdentities = 10'000;

  // Records that a new log-in with the identity `id` replaced a connection that had been logged in for `age`.
  // Returns true if two computers use the identity, and then forgets its replacements.
  [[nodiscard]] bool replaced(const std::string& id, Clock::duration age, Clock::time_point now);
  void forget(const std::string& id) { replacements_.erase(id); }

 private:
  void make_room();

  // The times of the replacements of each identity, the newest last.
  std::unordered_map<std::string, std::deque<Clock::time_point>> replacements_;
};

}  // namespace vlk::relay
