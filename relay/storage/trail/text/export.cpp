// Makes the pieces of an export.
#include "relay/storage/trail/text/export.h"

#include <utility>

#include <sodium.h>

#include "relay/storage/trail/text/lines.h"

namespace vlk::relay {
namespace {

// The time for one piece. Pages of the trail wait for the piece that is being made.
constexpr std::chrono::milliseconds kPieceTime{40};

Bytes hash_of(Database& database, std::int64_t id) {
  const TrailAnchor anchor = trail_anchor(database);
  if (id == anchor.first_id - 1) return anchor.previous_hash;
  Statement query(database, "SELECT hash FROM trail WHERE id = ?");
  if (!query.bind(id).step()) throw DatabaseError("Rows of the export have been removed meanwhile.");
  return query.bytes(0);
}

}  // namespace

struct TrailExport::Digest {
  crypto_hash_sha256_state state{};
};

std::optional<TrailFormat> trail_format(std::string_view name) {
  if (name == "csv") return TrailFormat::Csv;
  if (name == "jsonl") return TrailFormat::JsonLines;
  return std::nullopt;
}

TrailExport::TrailExport(Database& database, const TrailKey& key, TrailFormat format, TrailFilter filter)
    : database_(database),
      key_(key),
      format_(format),
      filter_(std::move(filter)),
      anchor_(trail_anchor(database)),
      next_id_(anchor_.first_id),
      last_id_(trail_end(database).id),
      digest_(std::make_unique<Digest>()) {
  crypto_hash_sha256_init(&digest_->state);
}

TrailExport::~TrailExport() = default;

std::string TrailExport::next() {
  if (ended_) return {};
  if (!std::exchange(begun_, true)) return beginning();
  if (next_id_ != 0) return rows();
  ended_ = true;
  return ending();
}

std::string TrailExport::counted(std::string line) {
  line += '\n';
  crypto_hash_sha256_update(&digest_->state, reinterpret_cast<const unsigned char*>(line.data()),
                            line.size());
  return line;
}

std::string TrailExport::beginning() {
  if (format_ == TrailFormat::Csv) return csv_header();
  std::string piece = counted(start_line({trail_now(), filter_.empty(), anchor_, key_.public_part()}));
  if (!filter_.empty()) return piece;
  Statement heads(
      database_, "SELECT day, last_id, hash, signature FROM trail_heads WHERE last_id <= ? ORDER BY last_id");
  heads.bind(last_id_);
  while (heads.step())
    piece += counted(head_line({heads.text(0), heads.number(1), heads.bytes(2), heads.bytes(3)}));
  return piece;
}

std::string TrailExport::rows() {
  const std::int64_t first = next_id_;
  TrailPage page = find_rows_upwards(database_, filter_, first, last_id_, kPieceRows, kPieceTime);
  const bool gap =
      page.rows.empty() ? page.next != first && first <= last_id_ : page.rows.front().id != first;
  if (filter_.empty() && gap) throw DatabaseError("Rows of the export have been removed meanwhile.");
  next_id_ = page.next;
  std::string piece;
  for (const TrailRow& row : page.rows)
    piece += row_text(row);
  row_count_ += static_cast<std::int64_t>(page.rows.size());
  return piece;
}

std::string TrailExport::row_text(const TrailRow& row) {
  if (format_ == TrailFormat::Csv) return csv_line(row);
  return counted(filter_.empty() ? row_line(row) : row_line(row, hash_of(database_, row.id - 1)));
}

std::string TrailExport::ending() {
  if (format_ == TrailFormat::Csv) return {};
  ExportEnd end{row_count_, Bytes(kTrailHashSize), {}};
  crypto_hash_sha256_final(&digest_->state, end.digest.data());
  end.signature = key_.sign(end_text(end));
  return end_line(end) + '\n';
}

}  // namespace vlk::relay
