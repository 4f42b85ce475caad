// The audit trail: gives the rows about what people and machines did to the database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>

#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/peers.h"
#include "relay/storage/thread/database_thread.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {

// Nobody waits for these rows. If a row cannot be written, what it records ends: the log reports it, and the
// session of the row ends. Used on the relay's one thread.
class AuditTrail {
 public:
  // `database` and `log` outlive the audit trail.
  AuditTrail(DatabaseThread& database, const Log& log) : database_(database), log_(log) {}

  // Gives a row to the database. `lost` is called if the row cannot be written.
  void write(TrailEntry entry, std::function<void()> lost = {});
  // The same for a row about a session, whose subject is completed here.
  void note(const Session& session, TrailEntry entry);

  // Rows that were given to the database, and those of them that were stored or lost.
  [[nodiscard]] std::uint64_t stored() const { return stored_; }
  [[nodiscard]] std::uint64_t lost() const { return lost_; }

  // Sets a function that is called with the number of a session of which a row could not be written.
  void on_lost_evidence(std::function<void(std::uint32_t session)> end) { end_session_ = std::move(end); }

 private:
  void finish(const TrailEntry& row);
  void report_lost(const TrailEntry& row, const std::string& failure);

  // So many rows of one session may wait for the database; the session ends at the next one. Without this
  // limit, one session could fill the queue that all share.
  static constexpr std::size_t kRowsPerSession = 2000;

  const ThreadChecker thread_;
  DatabaseThread& database_;
  const Log& log_;
  std::function<void(std::uint32_t session)> end_session_;
  std::uint64_t stored_ = 0;
  std::uint64_t lost_ = 0;
  std::map<std::int64_t, std::size_t> waiting_;  // rows that are not written yet, by session
};

}  // namespace vlk::relay
