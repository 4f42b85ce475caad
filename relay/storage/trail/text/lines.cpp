// Writes and reads the lines of an exported trail.
#include "relay/storage/trail/text/lines.h"

#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"

namespace vlk::relay {
namespace {

using Json = nlohmann::ordered_json;

std::string dumped(const Json& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

// The members of an object, read one by one. After the last one, `good` tells whether all were there and of
// the right type.
class Members {
 public:
  explicit Members(const Json& object) : object_(object), good(object.is_object()) {}

  [[nodiscard]] std::string text(const char* name) {
    const Json* value = find(name);
    if (value && value->is_string()) return value->get<std::string>();
    good = false;
    return {};
  }
  [[nodiscard]] std::int64_t number(const char* name) {
    const Json* value = find(name);
    if (value && value->is_number_integer()) return value->get<std::int64_t>();
    good = false;
    return 0;
  }
  [[nodiscard]] Bytes hex(const char* name) { return from_hex(text(name)); }
  [[nodiscard]] std::int64_t time(const char* name) {
    const auto time = parse_iso_time(text(name));
    if (!time) good = false;
    return time.value_or(0);
  }
  [[nodiscard]] const Json* find(const char* name) const {
    if (!object_.is_object()) return nullptr;
    const auto found = object_.find(name);
    return found == object_.end() ? nullptr : &*found;
  }

 private:
  const Json& object_;

 public:
  bool good;
};

// `fields` is inserted as it is stored, because the hash covers its bytes.
std::string row_text(const TrailRow& row, const Bytes* previous) {
  const TrailEntry& entry = row.entry;
  Json start = {{"id", row.id},
                {"time", iso_time(entry.time_ms)},
                {"code", entry.code},
                {"actor", entry.subject.actor},
                {"machine", entry.subject.machine},
                {"address", entry.subject.address},
                {"session", nullptr}};
  if (entry.subject.session) start["session"] = *entry.subject.session;
  std::string line = dumped(start);
  line.pop_back();
  line += ",\"fields\":" + entry.fields;
  if (previous) line += ",\"previous\":\"" + to_hex(*previous) + '"';
  return line + ",\"hash\":\"" + to_hex(row.hash) + "\"}";
}

// The stored text of the fields. The text before it holds no unescaped quotation mark after a comma but those
// of its own members, and what follows has a fixed length.
std::optional<std::string> fields_of(std::string_view line, bool with_previous) {
  constexpr std::string_view kBefore = ",\"fields\":";
  constexpr std::size_t kHash = 2 * kTrailHashSize;
  const std::size_t after = (sizeof(",\"hash\":\"\"}") - 1) + kHash +
                            (with_previous ? (sizeof(",\"previous\":\"\"") - 1) + kHash : 0);
  const std::size_t begin = line.find(kBefore);
  if (begin == std::string_view::npos || begin + kBefore.size() + after > line.size()) return std::nullopt;
  const std::size_t first = begin + kBefore.size();
  return std::string(line.substr(first, line.size() - after - first));
}

std::string csv_cell(const std::string& text) {
  constexpr std::string_view kFormulaStarts = "=+-@\t\r";
  std::string cell = "\"";
  if (!text.empty() && kFormulaStarts.find(text.front()) != std::string_view::npos) cell += '\'';
  for (const char c : text) {
    if (c == '"') cell += '"';
    cell += c;
  }
  return cell + '"';
}

}  // namespace

std::string row_line(const TrailRow& row) {
  return row_text(row, nullptr);
}

std::string row_line(const TrailRow& row, const Bytes& previous) {
  return row_text(row, &previous);
}

std::string head_line(const TrailHead& head) {
  return dumped({{"head",
                  {{"day", head.day},
                   {"last_id", head.last_id},
                   {"hash", to_hex(head.hash)},
                   {"signature", to_hex(head.signature)}}}});
}

std::string start_line(const ExportStart& start) {
  return dumped({{"trail", 1},
                 {"time", iso_time(start.time_ms)},
                 {"complete", start.complete},
                 {"first_id", start.anchor.first_id},
                 {"previous", to_hex(start.anchor.previous_hash)},
                 {"signature", to_hex(start.anchor.signature)},
                 {"key", to_hex(start.key)}});
}

std::string end_line(const ExportEnd& end) {
  return dumped(
      {{"end", {{"rows", end.rows}, {"digest", to_hex(end.digest)}, {"signature", to_hex(end.signature)}}}});
}

std::string end_text(const ExportEnd& end) {
  return "vantelink trail export 1\n" + std::to_string(end.rows) + '\n' + to_hex(end.digest) + '\n';
}

std::optional<ReadRow> read_row_line(std::string_view line) {
  const Json object = Json::parse(line, nullptr, false);
  Members members(object);
  ReadRow result;
  TrailRow& row = result.row;
  row.id = members.number("id");
  row.entry.time_ms = members.time("time");
  row.entry.code = members.text("code");
  row.entry.subject = {members.text("actor"), members.text("machine"), members.text("address"), std::nullopt};
  const Json* session = members.find("session");
  if (session && session->is_number_integer()) row.entry.subject.session = session->get<std::int64_t>();
  row.hash = members.hex("hash");
  if (members.find("previous")) result.previous = members.hex("previous");
  const auto fields = fields_of(line, result.previous.has_value());
  if (!members.good || !fields) return std::nullopt;
  row.entry.fields = *fields;
  // A line that says something twice, or in another form, is not one of the relay's.
  const std::string again = result.previous ? row_line(row, *result.previous) : row_line(row);
  if (again != line) return std::nullopt;
  return result;
}

std::optional<TrailHead> read_head_line(std::string_view line) {
  const Json object = Json::parse(line, nullptr, false);
  const Json* inner = Members(object).find("head");
  if (!inner) return std::nullopt;
  Members members(*inner);
  TrailHead head{members.text("day"), members.number("last_id"), members.hex("hash"),
                 members.hex("signature")};
  if (!members.good || head_line(head) != line) return std::nullopt;
  return head;
}

std::optional<ExportStart> read_start_line(std::string_view line) {
  const Json object = Json::parse(line, nullptr, false);
  Members members(object);
  const Json* complete = members.find("complete");
  if (members.number("trail") != 1 || !complete || !complete->is_boolean()) return std::nullopt;
  ExportStart start{members.time("time"),
                    complete->get<bool>(),
                    {members.number("first_id"), members.hex("previous"), members.hex("signature")},
                    members.hex("key")};
  if (!members.good || start_line(start) != line) return std::nullopt;
  return start;
}

std::optional<ExportEnd> read_end_line(std::string_view line) {
  const Json object = Json::parse(line, nullptr, false);
  const Json* inner = Members(object).find("end");
  if (!inner) return std::nullopt;
  Members members(*inner);
  ExportEnd end{members.number("rows"), members.hex("digest"), members.hex("signature")};
  if (!members.good || end_line(end) != line) return std::nullopt;
  return end;
}

std::string csv_header() {
  return "id,time,code,actor,machine,address,session,fields,hash\r\n";
}

std::string csv_line(const TrailRow& row) {
  const TrailSubject& subject = row.entry.subject;
  std::string line = std::to_string(row.id) + ',' + iso_time(row.entry.time_ms);
  for (const std::string* text : {&row.entry.code, &subject.actor, &subject.machine, &subject.address})
    line += ',' + csv_cell(*text);
  line += ',' + (subject.session ? std::to_string(*subject.session) : std::string());
  return line + ',' + csv_cell(row.entry.fields) + ',' + to_hex(row.hash) + "\r\n";
}

}  // namespace vlk::relay
