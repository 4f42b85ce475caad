// Copies the rows of the trail to a sink for log collectors, on a thread of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "relay/base/threads/mutex.h"
#include "relay/storage/database.h"
#include "relay/storage/follow/sinks.h"

namespace vlk::relay {

// Reads the rows from the database, so that neither a slow disk nor a silent collector is felt by anybody,
// and no row is left out: what cannot be written is written later. After a start the follower continues after
// the last row that the sink has; a sink that cannot know gets the rows from now on.
class TrailFollower {
 public:
  using Report = std::function<void(const std::string& problem)>;

  // `report` is called on the follower's thread, once for each time that writing begins to fail. Throws
  // DatabaseError.
  TrailFollower(const std::string& file, std::unique_ptr<TrailSink> sink, Report report);
  // Copies the rows that are there first, unless the sink fails.
  ~TrailFollower();
  TrailFollower(const TrailFollower&) = delete;
  TrailFollower& operator=(const TrailFollower&) = delete;

  // Makes the sink open its file again.
  void reopen() RELAY_EXCLUDES(lock_);

  static constexpr std::chrono::milliseconds kPause{250};  // between two looks for new rows

 private:
  void work();
  // Waits for the next look. Returns false if it is the last one.
  [[nodiscard]] bool wait() RELAY_EXCLUDES(lock_);
  // Copies all rows that are there.
  void copy();

  Database database_;
  const std::unique_ptr<TrailSink> sink_;
  const Report report_;
  std::int64_t last_id_ = 0;
  bool failing_ = false;
  Mutex lock_;
  ConditionVariable changed_;
  bool stopping_ RELAY_GUARDED_BY(lock_) = false;
  bool reopen_ RELAY_GUARDED_BY(lock_) = false;
  std::thread thread_;
};

}  // namespace vlk::relay
