// The trail as text: lines of JSON for log collectors and for verification, and CSV for spreadsheets.
//
// A file of JSON lines that the relay exports has this form:
//
//   {"trail":1,"time":"...","complete":true,"first_id":1,"previous":"<hash>","signature":"<anchor's>","key":"<public
//   key>"}
//   {"head":{"day":"...","last_id":N,"hash":"<hash>","signature":"<hexadecimal>"}}   one for each signed head
//   {"id":1,"time":"...","code":"...","actor":"...","machine":"...","address":"...","session":7,"fields":{...},"hash":"<hash>"}
//   {"end":{"rows":N,"digest":"<SHA-256 of all lines before>","signature":"<over end_text()>"}}
//
// An export that a filter has reduced has "complete":false; each of its rows also has "previous", the hash of
// the row before it in the trail, so that the row's own hash can be checked.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "relay/storage/trail/chain.h"

namespace vlk::relay {

// Lines without their line breaks. `previous` is the hash of the row before.
[[nodiscard]] std::string row_line(const TrailRow& row);
[[nodiscard]] std::string row_line(const TrailRow& row, const Bytes& previous);
[[nodiscard]] std::string head_line(const TrailHead& head);

struct ExportStart {
  std::int64_t time_ms = 0;
  bool complete = false;
  TrailAnchor anchor{};
  Bytes key{};
};
[[nodiscard]] std::string start_line(const ExportStart& start);

struct ExportEnd {
  std::int64_t rows = 0;
  Bytes digest{};
  Bytes signature{};
};
[[nodiscard]] std::string end_line(const ExportEnd& end);
// The text that the signature of the end covers.
[[nodiscard]] std::string end_text(const ExportEnd& end);

// The contents of a line; nothing if the line is not of this form to the byte.
struct ReadRow {
  TrailRow row;
  std::optional<Bytes> previous{};
};
[[nodiscard]] std::optional<ReadRow> read_row_line(std::string_view line);
[[nodiscard]] std::optional<TrailHead> read_head_line(std::string_view line);
[[nodiscard]] std::optional<ExportStart> read_start_line(std::string_view line);
[[nodiscard]] std::optional<ExportEnd> read_end_line(std::string_view line);

// CSV by RFC 4180, with CRLF. A cell that a spreadsheet would take for a formula begins with an apostrophe.
[[nodiscard]] std::string csv_header();
[[nodiscard]] std::string csv_line(const TrailRow& row);

}  // namespace vlk::relay
