// The audit trail's tables, and the chain of hashes that makes a later change of a row visible.
//
// Each row carries the hash of the row before it within its own hash:
//
//   hash = SHA-256(P || F(id) || F(time) || F(code) || F(actor) || F(machine) || F(address) || F(session) ||
//   F(fields))
//
// P is the hash of the row before, 32 bytes; for the very first row, 32 zero bytes. F(x) is the number of
// bytes of x as 4 bytes, big-endian, followed by x. id, time and session are decimal numbers as text; a row
// without a session has an empty text there. The other texts are UTF-8 as stored. The ids are consecutive and
// begin with 1.
//
// A head is a signature over the last row's hash: Ed25519 over head_text(). Rows that came after the last
// head can be removed from the end unseen; no other change can.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "relay/base/bytes.h"
#include "relay/storage/database.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {

class TrailKey;

inline constexpr std::size_t kTrailHashSize = 32;

// The hash of the row. `previous` is the hash of the row before it.
[[nodiscard]] Bytes row_hash(const TrailRow& row, const Bytes& previous);

// The row before the first one that the trail still has: rows are removed only by shorten_trail().
struct TrailAnchor {
  std::int64_t first_id = 1;
  Bytes previous_hash = Bytes(kTrailHashSize);
  Bytes signature{};  // over anchor_text(); empty while no row has been removed
};

// A signed statement that the row `last_id` had this hash.
struct TrailHead {
  std::string day;  // of the row, in UTC, as in "2026-11-22"
  std::int64_t last_id = 0;
  Bytes hash;
  Bytes signature;
};

// The texts that are signed.
[[nodiscard]] std::string head_text(const TrailHead& head);
[[nodiscard]] std::string anchor_text(const TrailAnchor& anchor);

// The following functions throw DatabaseError. Those that write are to be called within a transaction.

// Writes the rows after the last one. A row whose time is up to 10 s before that of the row before it gets
// the same time: rows from several threads and processes may arrive slightly out of order.
void append_trail(Database& database, std::span<const TrailEntry> entries);

// Signs the last row, unless it has been signed or there is none. To be called at the relay's start and stop
// and before the first row of a day.
void sign_head(Database& database, const TrailKey& key);

// Removes at most `limit` of the oldest rows, up to the first that is not older than `before_ms`, and never
// the last row. Writes a row that says so, and moves the anchor. Returns the number of removed rows.
std::int64_t shorten_trail(Database& database, const TrailKey& key, std::int64_t before_ms,
                           std::int64_t limit);

[[nodiscard]] TrailAnchor trail_anchor(Database& database);
// The last row's id and hash; before the first row, the anchor's.
struct TrailEnd {
  std::int64_t id = 0;
  std::int64_t time_ms = 0;
  Bytes hash;
};
[[nodiscard]] TrailEnd trail_end(Database& database);

// The columns of a row in the order that read_trail_row() expects, for the SELECT of a statement.
inline constexpr char kTrailColumns[] = "id, time, code, actor, machine, address, session, fields, hash";
[[nodiscard]] TrailRow read_trail_row(const Statement& query);

}  // namespace vlk::relay
