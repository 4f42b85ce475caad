// Keeps the trail in order: signs its heads and carries out the rule of retention.
#pragma once

#include <cstdint>

#include "relay/base/clock.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/storage/thread/database_thread.h"
#include "relay/storage/trail/key.h"

namespace vlk::relay {

// The setting with the number of days that rows are kept; without it, or with 0, they are kept for ever.
inline constexpr char kRetentionSetting[] = "retention_days";

// Used on the relay's one thread.
class TrailKeeper {
 public:
  // Checks the rows after the last head, which nobody has signed yet, and signs them. If one of them was
  // touched, a row says so. The arguments outlive this object. Throws DatabaseError.
  TrailKeeper(DatabaseThread& database, const TrailKey& key, const Log& log);

  // To be called often. `now_ms` is in ms since 1970.
  void tick(std::int64_t now_ms);
  // Signs the last row.
  void sign();

  static constexpr std::int64_t kRowsPerStep = 2000;  // that the rule of retention removes in one job

 private:
  void shorten(std::int64_t now_ms);

  const ThreadChecker thread_;
  DatabaseThread& database_;
  const TrailKey& key_;
  const Log& log_;
  std::int64_t day_ = 0;  // since 1970, of the last head
  std::int64_t next_shortening_ms_ = 0;
};

}  // namespace vlk::relay
