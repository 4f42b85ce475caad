// Which machines may connect: enrolment windows, machines that wait for approval, and identities that two
// computers use.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "relay/admission/enrolment_windows.h"
#include "relay/admission/identity_fights.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/parts.h"

namespace vlk::relay {

// The largest numbers of machines that wait for approval: in all, and from one address without its port.
inline constexpr std::size_t kWaitingMachines = 1000;
inline constexpr std::size_t kWaitingPerAddress = 50;

// Used on the relay's one thread.
class Admission {
 public:
  // Reads the stored windows. The arguments outlive this object. Throws DatabaseError.
  Admission(Parts& parts, const Log& log);

  [[nodiscard]] EnrolmentWindows& windows() { return windows_; }
  [[nodiscard]] IdentityFights& fights() { return fights_; }

  // Makes room for one more waiting machine from the address: when all places are taken, the machine that has
  // waited longest without a connection is removed. Returns false if there is no room.
  [[nodiscard]] bool make_room(const std::string& address);
  // Records that a log-in of `peer` replaced the connection `older`. Returns true if two computers use the
  // machine's identity. Both connections are then held back until an administrator decides.
  [[nodiscard]] bool replaced(const AgentPeer& peer, const AgentPeer& older, Clock::time_point now);

  // Closes the windows whose time is over or whose machines are used up. `now` is in seconds since 1970.
  void tick(std::int64_t now);
  // Reads the stored windows again, because another process has changed them.
  void reload();

 private:
  [[nodiscard]] std::string group_name(std::int64_t group) const;

  const ThreadChecker thread_;
  Parts& parts_;
  const Log& log_;
  EnrolmentWindows windows_;
  IdentityFights fights_;
};

}  // namespace vlk::relay
