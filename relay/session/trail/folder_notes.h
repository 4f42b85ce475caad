// The rows about listed folders. A browser lists a folder again and again, so the rows are aggregated.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/session/peers.h"
#include "relay/session/trail/audit_trail.h"

namespace vlk::relay {

// Used on the relay's one thread.
class FolderNotes {
 public:
  // Records a request for a folder's list: at most one row for each folder, session and minute. The row has
  // the number of requests since the last row about the folder.
  void note(AuditTrail& audit, const Session& session, const Bytes& request, Clock::time_point now);

  static constexpr std::chrono::minutes kInterval{1};
  static constexpr std::size_t kRemembered = 1024;  // folders of all sessions
  static constexpr std::size_t kLongestRequest =
      64 * 1024;  // bytes; longer requests are recorded without their path

 private:
  struct Folder {
    Clock::time_point written;
    std::int64_t requests = 0;  // since then
  };
  void forget_old(Clock::time_point now);

  std::map<std::pair<std::uint32_t, std::string>, Folder> folders_;  // by session and path
};

}  // namespace vlk::relay
