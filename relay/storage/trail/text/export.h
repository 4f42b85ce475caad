// An export of the trail, made piece by piece.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "relay/storage/trail/key.h"
#include "relay/storage/trail/query.h"

namespace vlk::relay {

enum class TrailFormat { Csv, JsonLines };

// The format with this name, "csv" or "jsonl".
[[nodiscard]] std::optional<TrailFormat> trail_format(std::string_view name);

// The rows that exist when the export begins. No transaction is open between two pieces, so that an export
// that nobody reads holds nothing up.
class TrailExport {
 public:
  // The arguments outlive this object. Throws DatabaseError.
  TrailExport(Database& database, const TrailKey& key, TrailFormat format, TrailFilter filter);
  ~TrailExport();
  TrailExport(const TrailExport&) = delete;
  TrailExport& operator=(const TrailExport&) = delete;

  // The next piece, at most kPieceRows rows; it is empty where a search has found nothing yet. Throws
  // DatabaseError, also if the rule of retention has removed rows that a complete export should have.
  [[nodiscard]] std::string next();
  // True after the last piece.
  [[nodiscard]] bool ended() const { return ended_; }

  static constexpr std::size_t kPieceRows = 500;

 private:
  [[nodiscard]] std::string beginning();
  [[nodiscard]] std::string rows();
  [[nodiscard]] std::string row_text(const TrailRow& row);
  [[nodiscard]] std::string ending();
  // The line with its line break. The digest covers it.
  [[nodiscard]] std::string counted(std::string line);

  Database& database_;
  const TrailKey& key_;
  const TrailFormat format_;
  const TrailFilter filter_;
  TrailAnchor anchor_;
  std::int64_t next_id_ = 0;  // 0 after the last row
  std::int64_t last_id_ = 0;
  std::int64_t row_count_ = 0;
  bool begun_ = false;
  bool ended_ = false;
  struct Digest;
  std::unique_ptr<Digest> digest_;
};

}  // namespace vlk::relay
