// Writes the rows of the audit trail, each with the hash of the row before it.
#include "relay/storage/trail/chain.h"

#include <array>
#include <string_view>
#include <utility>

#include <sodium.h>

#include "relay/base/secrets.h"
#include "relay/storage/trail/key.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kOutOfOrderMs = 10'000;
constexpr std::size_t kDayLength = 10;  // characters of "2026-11-22"

void hash_field(crypto_hash_sha256_state& state, std::string_view field) {
  const auto size = static_cast<std::uint32_t>(field.size());
  const std::array<unsigned char, 4> length{
      static_cast<unsigned char>(size >> 24), static_cast<unsigned char>(size >> 16),
      static_cast<unsigned char>(size >> 8), static_cast<unsigned char>(size)};
  crypto_hash_sha256_update(&state, length.data(), length.size());
  crypto_hash_sha256_update(&state, reinterpret_cast<const unsigned char*>(field.data()), field.size());
}

std::string day_of(std::int64_t time_ms) {
  return iso_time(time_ms).substr(0, kDayLength);
}

bool has_head(Database& database, std::int64_t id) {
  return Statement(database, "SELECT 1 FROM trail_heads WHERE last_id = ?").bind(id).step();
}

void bind_row(Statement& statement, const TrailRow& row) {
  const TrailSubject& subject = row.entry.subject;
  statement.bind(row.id).bind(row.entry.time_ms).bind(row.entry.code).bind(subject.actor);
  statement.bind(subject.machine).bind(subject.address).bind(subject.session);
  statement.bind(row.entry.fields).bind(row.hash);
}

}  // namespace

Bytes row_hash(const TrailRow& row, const Bytes& previous) {
  const TrailSubject& subject = row.entry.subject;
  crypto_hash_sha256_state state;
  crypto_hash_sha256_init(&state);
  crypto_hash_sha256_update(&state, previous.data(), previous.size());
  hash_field(state, std::to_string(row.id));
  hash_field(state, std::to_string(row.entry.time_ms));
  for (const std::string* text : {&row.entry.code, &subject.actor, &subject.machine, &subject.address})
    hash_field(state, *text);
  hash_field(state, subject.session ? std::to_string(*subject.session) : std::string());
  hash_field(state, row.entry.fields);
  Bytes hash(kTrailHashSize);
  crypto_hash_sha256_final(&state, hash.data());
  return hash;
}

std::string head_text(const TrailHead& head) {
  return "vantelink trail head 1\n" + head.day + '\n' + std::to_string(head.last_id) + '\n' +
         to_hex(head.hash) + '\n';
}

std::string anchor_text(const TrailAnchor& anchor) {
  return "vantelink trail anchor 1\n" + std::to_string(anchor.first_id) + '\n' +
         to_hex(anchor.previous_hash) + '\n';
}

void append_trail(Database& database, std::span<const TrailEntry> entries) {
  if (entries.empty()) return;
  TrailEnd end = trail_end(database);
  Statement insert(database, "INSERT INTO trail VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?)");
  for (const TrailEntry& entry : entries) {
    TrailRow row{end.id + 1, entry, {}};
    std::int64_t& time = row.entry.time_ms;
    if (time < end.time_ms && time >= end.time_ms - kOutOfOrderMs) time = end.time_ms;
    row.hash = row_hash(row, end.hash);
    insert.reset();
    bind_row(insert, row);
    insert.run();
    if (time < end.time_ms) Statement(database, "INSERT INTO trail_steps VALUES(?)").bind(row.id).run();
    end = {row.id, time, row.hash};
  }
}

void sign_head(Database& database, const TrailKey& key) {
  const TrailEnd end = trail_end(database);
  if (end.id < trail_anchor(database).first_id || has_head(database, end.id)) return;
  TrailHead head{day_of(end.time_ms), end.id, end.hash, {}};
  head.signature = key.sign(head_text(head));
  Statement(database, "INSERT INTO trail_heads VALUES(?, ?, ?, ?)")
      .bind(head.last_id)
      .bind(head.day)
      .bind(head.hash)
      .bind(head.signature)
      .run();
}

std::int64_t shorten_trail(Database& database, const TrailKey& key, std::int64_t before_ms,
                           std::int64_t limit) {
  TrailAnchor anchor = trail_anchor(database);
  Statement oldest(
      database,
      "SELECT id, time, hash FROM trail WHERE id < (SELECT max(id) FROM trail) ORDER BY id LIMIT ?");
  oldest.bind(limit);
  std::int64_t through = 0;
  while (oldest.step() && oldest.number(1) < before_ms) {
    through = oldest.number(0);
    anchor.previous_hash = oldest.bytes(2);
  }
  oldest.reset();
  if (through == 0) return 0;
  const std::int64_t count = through + 1 - std::exchange(anchor.first_id, through + 1);
  anchor.signature = key.sign(anchor_text(anchor));
  append_trail(database, std::array{trail_entry<TrailKind::TrailShortened>({.actor = kTrailRelay}, through,
                                                                           iso_time(before_ms), count)});
  Statement(database, "UPDATE trail_anchor SET first_id = ?, previous_hash = ?, signature = ?")
      .bind(anchor.first_id)
      .bind(anchor.previous_hash)
      .bind(anchor.signature)
      .run();
  Statement(database, "DELETE FROM trail WHERE id < ?").bind(anchor.first_id).run();
  Statement(database, "DELETE FROM trail_steps WHERE id <= ?").bind(anchor.first_id).run();
  return count;
}

TrailAnchor trail_anchor(Database& database) {
  Statement query(database, "SELECT first_id, previous_hash, signature FROM trail_anchor");
  if (!query.step()) throw DatabaseError("The trail has no anchor.");
  return {query.number(0), query.bytes(1), query.bytes(2)};
}

TrailEnd trail_end(Database& database) {
  Statement query(database, "SELECT id, time, hash FROM trail ORDER BY id DESC LIMIT 1");
  if (query.step()) return {query.number(0), query.number(1), query.bytes(2)};
  const TrailAnchor anchor = trail_anchor(database);
  return {anchor.first_id - 1, 0, anchor.previous_hash};
}

TrailRow read_trail_row(const Statement& query) {
  TrailRow row;
  row.id = query.number(0);
  row.entry.time_ms = query.number(1);
  row.entry.code = query.text(2);
  row.entry.subject.actor = query.text(3);
  row.entry.subject.machine = query.text(4);
  row.entry.subject.address = query.text(5);
  row.entry.subject.session = query.optional_number(6);
  row.entry.fields = query.text(7);
  row.hash = query.bytes(8);
  return row;
}

}  // namespace vlk::relay
