// The rows about clipboards that passed. A script on a machine can change its clipboard many times a second,
// so the rows of a session are limited.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>

#include "relay/base/clock.h"
#include "relay/session/peers.h"
#include "relay/session/trail/audit_trail.h"
#include "relay/wire/clip_note.h"

namespace vlk::relay {

// Used on the relay's one thread.
class ClipNotes {
 public:
  // `audit` outlives this object.
  explicit ClipNotes(AuditTrail& audit) : audit_(audit) {}

  // Records a clipboard: a row for each of the first kRows of the session in each minute. The others are
  // counted in one row, which comes before the next one of the session.
  void note(const Session& session, const char* direction, const ClipNote& clip, Clock::time_point now);
  // Writes what is counted. To be called when the session ends, before the row about the end.
  void end(const Session& session);

  static constexpr std::size_t kRows = 120;
  static constexpr std::chrono::minutes kInterval{1};

 private:
  struct Count {
    Clock::time_point since{};
    std::size_t rows = 0;
    std::int64_t more = 0;  // clipboards without a row of their own
    std::uint64_t more_bytes = 0;
  };
  void write_more(const Session& session, Count& count);

  AuditTrail& audit_;
  std::map<std::uint32_t, Count> sessions_;
};

}  // namespace vlk::relay
