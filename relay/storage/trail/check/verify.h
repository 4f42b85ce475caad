// Checks a trail: whether each row is as it was written, and none is missing.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "relay/storage/trail/text/lines.h"

namespace vlk::relay {

struct TrailVerdict {
  bool intact = true;
  std::optional<std::int64_t> row{};  // the first row that was touched, if one can be named
  std::string problem{};              // a sentence, if the trail is not intact
  std::int64_t rows = 0;              // that were checked
  std::int64_t heads = 0;             // signatures that fit
  std::int64_t signed_through =
      0;  // the last row that a signature covers; rows after it can be cut off unseen
};

// Checks rows one by one, in the order of their ids. After the first problem it checks nothing more.
class TrailChecker {
 public:
  // Without a public key, signatures are not checked. Without an anchor, the first row is taken as it is.
  TrailChecker(std::optional<Bytes> key, std::optional<TrailAnchor> anchor);

  // To be called for each head before the first row.
  void add_head(const TrailHead& head);
  void add_row(const TrailRow& row);
  // Reports a problem that the caller has found.
  void fail(std::optional<std::int64_t> row, const std::string& problem);
  // To be called after the last row.
  [[nodiscard]] TrailVerdict finish();
  [[nodiscard]] const TrailVerdict& verdict() const { return verdict_; }

 private:
  void check_order(const TrailRow& row);
  void check_head(const TrailHead& head);

  const std::optional<Bytes> key_;
  std::map<std::int64_t, TrailHead> heads_;  // of rows that have not been seen yet, by the row's id
  std::optional<std::int64_t> expected_id_;
  std::optional<Bytes> previous_;
  std::int64_t fits_through_ = 0;  // the last row whose head fitted
  TrailVerdict verdict_;
};

// Checks the database without changing it. Throws DatabaseError if it cannot be read.
[[nodiscard]] TrailVerdict verify_database(const std::string& address, const std::optional<Bytes>& key);

// Checks the rows after the last signed head, without signatures. Throws DatabaseError.
[[nodiscard]] TrailVerdict verify_after_last_head(Database& database);

// Checks a file of JSON lines: an export, or a file of --trail-log, which has rows only. Without a key the
// one in the export is used. Throws std::runtime_error with a sentence if the file cannot be read.
[[nodiscard]] TrailVerdict verify_export(const std::string& file, const std::optional<Bytes>& key);

}  // namespace vlk::relay
