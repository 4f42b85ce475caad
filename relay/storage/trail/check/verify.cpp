// Recomputes the hashes of a trail and checks its signatures.
#include "relay/storage/trail/check/verify.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include <sodium.h>

#include "relay/base/secrets.h"
#include "relay/storage/trail/key.h"

namespace vlk::relay {
namespace {

// The longest line of an export: a row with the longest fields is far below it.
constexpr std::size_t kLongestLine = std::size_t{16} << 20;

constexpr int kRowsAtOnce = 1000;

std::string row_name(std::int64_t id) {
  return "Row " + std::to_string(id);
}

// Reads the lines of an export and gives their contents to the checker.
class ExportReader {
 public:
  explicit ExportReader(std::optional<Bytes> key) : key_(std::move(key)) {
    crypto_hash_sha256_init(&digest_);
  }

  void read(std::string_view line) {
    if (ended_) return fail("Lines follow the end of the export.");
    ++lines_;
    if (lines_ == 1) return read_first(line);
    if (const auto end = read_end_line(line)) return read_end(*end);
    add_to_digest(line);
    if (const auto head = read_head_line(line)) {
      if (checker_->verdict().rows > 0) return fail("A signed head is in the wrong place.");
      return checker_->add_head(*head);
    }
    read_row(line);
  }

  [[nodiscard]] TrailVerdict finish() {
    if (!checker_) checker_.emplace(key_, std::nullopt);
    if (start_ && !ended_) fail("The export has no end: it was cut off.");
    TrailVerdict verdict = checker_->finish();
    if (verdict.intact && start_ && !start_->complete) verdict.rows = rows_;
    return verdict;
  }

 private:
  void fail(const std::string& problem) { checker_->fail(std::nullopt, problem); }

  void read_first(std::string_view line) {
    start_ = read_start_line(line);
    if (!start_) {  // a log collector's file, which begins anywhere in the trail
      checker_.emplace(std::nullopt, std::nullopt);
      return read_row(line);
    }
    add_to_digest(line);
    if (!key_) key_ = start_->key;
    checker_.emplace(key_, start_->complete ? std::optional(start_->anchor) : std::nullopt);
    if (start_->key != *key_) fail("The export was signed with another key.");
  }

  void read_row(std::string_view line) {
    const auto read = read_row_line(line);
    if (!read)
      return checker_->fail(next_row(), "Line " + std::to_string(lines_) + " is not as it was written.");
    last_id_ = read->row.id;
    ++rows_;
    if (!start_ || start_->complete) return checker_->add_row(read->row);
    if (!read->previous || row_hash(read->row, *read->previous) != read->row.hash)
      checker_->fail(read->row.id, row_name(read->row.id) + " was changed.");
  }

  // The row that a line that cannot be read must have been. In a filtered export it is unknown.
  [[nodiscard]] std::optional<std::int64_t> next_row() const {
    if (start_ && !start_->complete) return std::nullopt;
    if (last_id_) return *last_id_ + 1;
    return start_ ? std::optional(start_->anchor.first_id) : std::nullopt;
  }

  void read_end(const ExportEnd& end) {
    ended_ = true;
    Bytes digest(kTrailHashSize);
    crypto_hash_sha256_final(&digest_, digest.data());
    if (end.rows != rows_)
      return fail("The export has " + std::to_string(rows_) + " rows and not " + std::to_string(end.rows) +
                  '.');
    if (digest != end.digest) return fail("A line of the export was changed, removed or moved.");
    if (!signature_fits(*key_, end_text(end), end.signature))
      return fail("The signature at the export's end does not fit.");
  }

  void add_to_digest(std::string_view line) {
    crypto_hash_sha256_update(&digest_, reinterpret_cast<const unsigned char*>(line.data()), line.size());
    crypto_hash_sha256_update(&digest_, reinterpret_cast<const unsigned char*>("\n"), 1);
  }

  std::optional<Bytes> key_;
  std::optional<ExportStart> start_;
  std::optional<TrailChecker> checker_;
  crypto_hash_sha256_state digest_{};
  std::int64_t lines_ = 0;
  std::int64_t rows_ = 0;
  std::optional<std::int64_t> last_id_;
  bool ended_ = false;
};

// Gives the checker the rows from an id on, in steps, since an engine may hold all rows of a result in
// memory.
void add_rows_from(Database& database, std::int64_t first, TrailChecker& checker) {
  const std::string sql =
      "SELECT " + std::string(kTrailColumns) + " FROM trail WHERE id >= ? ORDER BY id LIMIT ?";
  for (bool more = true; more;) {
    more = false;
    Statement rows(database, sql.c_str());
    rows.bind(first).bind(kRowsAtOnce);
    while (checker.verdict().intact && rows.step()) {
      const TrailRow row = read_trail_row(rows);
      checker.add_row(row);
      first = row.id + 1;
      more = true;
    }
  }
}

}  // namespace

TrailChecker::TrailChecker(std::optional<Bytes> key, std::optional<TrailAnchor> anchor)
    : key_(std::move(key)) {
  if (!anchor) return;
  expected_id_ = anchor->first_id;
  previous_ = anchor->previous_hash;
  const bool at_start = anchor->first_id == 1 && anchor->previous_hash == Bytes(kTrailHashSize);
  if (at_start || !key_) return;
  if (!signature_fits(*key_, anchor_text(*anchor), anchor->signature))
    fail(std::nullopt, "The anchor was changed: rows before row " + std::to_string(anchor->first_id) +
                           " were not removed by the relay.");
}

void TrailChecker::fail(std::optional<std::int64_t> row, const std::string& problem) {
  if (!verdict_.intact) return;
  verdict_.intact = false;
  verdict_.row = row;
  verdict_.problem = problem;
}

void TrailChecker::add_head(const TrailHead& head) {
  if (key_ && !signature_fits(*key_, head_text(head), head.signature))
    return fail(std::nullopt, "The signature of the head of " + head.day + " does not fit.");
  // A head of a row that was removed by the rule of retention. The last such row is what the anchor names.
  if (expected_id_ && head.last_id < *expected_id_) {
    ++verdict_.heads;
    if (head.last_id == *expected_id_ - 1 && previous_ && head.hash != *previous_)
      fail(std::nullopt, "The anchor does not fit the head of " + head.day + '.');
    return;
  }
  heads_[head.last_id] = head;
}

void TrailChecker::check_order(const TrailRow& row) {
  if (!expected_id_ || row.id == *expected_id_) return;
  if (row.id > *expected_id_) return fail(*expected_id_, row_name(*expected_id_) + " is missing.");
  fail(row.id, row_name(row.id) + " is in the wrong place.");
}

void TrailChecker::add_row(const TrailRow& row) {
  if (!verdict_.intact) return;
  check_order(row);
  if (previous_ && row_hash(row, *previous_) != row.hash)
    fail(row.id, row_name(row.id) + " was changed, or the one before it with its hash.");
  if (!verdict_.intact) return;
  ++verdict_.rows;
  expected_id_ = row.id + 1;
  previous_ = row.hash;
  const auto head = heads_.find(row.id);
  if (head == heads_.end()) return;
  check_head(head->second);
  heads_.erase(head);
}

void TrailChecker::check_head(const TrailHead& head) {
  if (head.hash != *previous_) {
    return fail(std::nullopt, "The rows " + std::to_string(fits_through_ + 1) + " to " +
                                  std::to_string(head.last_id) + " do not fit the signed head of " +
                                  head.day +
                                  ": one of them was changed, and the hashes after it were computed again.");
  }
  ++verdict_.heads;
  fits_through_ = head.last_id;
  if (key_) verdict_.signed_through = head.last_id;
}

TrailVerdict TrailChecker::finish() {
  if (verdict_.intact && !heads_.empty()) {
    const std::int64_t first = expected_id_.value_or(heads_.begin()->first);
    fail(first, row_name(first) + " is missing: the rows through " + std::to_string(heads_.rbegin()->first) +
                    " were signed.");
  }
  return verdict_;
}

TrailVerdict verify_database(const std::string& address, const std::optional<Bytes>& key) {
  Database database = Database::read_only(address);
  const Snapshot snapshot(database);  // rows that a running relay adds meanwhile are not seen
  TrailChecker checker(key, trail_anchor(database));
  Statement heads(database, "SELECT day, last_id, hash, signature FROM trail_heads ORDER BY last_id");
  while (heads.step())
    checker.add_head({heads.text(0), heads.number(1), heads.bytes(2), heads.bytes(3)});
  add_rows_from(database, 0, checker);
  return checker.finish();
}

TrailVerdict verify_after_last_head(Database& database) {
  TrailAnchor start = trail_anchor(database);
  Statement head(database, "SELECT last_id, hash FROM trail_heads ORDER BY last_id DESC LIMIT 1");
  if (head.step() && head.number(0) >= start.first_id) start = {head.number(0) + 1, head.bytes(1), {}};
  TrailChecker checker(std::nullopt, start);
  add_rows_from(database, start.first_id, checker);
  return checker.finish();
}

TrailVerdict verify_export(const std::string& file, const std::optional<Bytes>& key) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + file + ": " + std::strerror(errno));
  ExportReader reader(key);
  std::string line;
  while (std::getline(in, line)) {
    if (line.size() > kLongestLine) throw std::runtime_error("a line of " + file + " is too long");
    reader.read(line);
  }
  return reader.finish();
}

}  // namespace vlk::relay
