// Makes the rows of the audit trail.
#include "relay/storage/trail/entry.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

#include <nlohmann/json.hpp>

#include "relay/base/text.h"

namespace vlk::relay {
namespace {

using Json = nlohmann::ordered_json;

std::string shortened(const std::string& text) {
  const std::string_view kept = cut_utf8(text, kLongestTrailText);
  return std::string(kept) + (kept.size() < text.size() ? "..." : "");
}

// Replaces invalid UTF-8 and control characters, which a text index and a log collector could not read.
std::string valid_text(const std::string& text) {
  const std::string quoted =
      Json(without_controls(shortened(text))).dump(-1, ' ', false, Json::error_handler_t::replace);
  return Json::parse(quoted).get<std::string>();
}

// A null character is replaced: PostgreSQL stores none, not even as an escape in JSON.
std::string field_text(const std::string& text) {
  std::string result = shortened(text);
  std::ranges::replace(result, '\0', ' ');
  return result;
}

Json json_of(const TrailValue& value) {
  if (const auto* text = std::get_if<std::string>(&value)) return field_text(*text);
  if (const auto* number = std::get_if<std::int64_t>(&value)) return *number;
  if (const auto* truth = std::get_if<bool>(&value)) return *truth;
  Json list = Json::array();
  for (const std::string& text : std::get<std::vector<std::string>>(value))
    list.push_back(field_text(text));
  return list;
}

std::optional<int> number_at(std::string_view text, std::size_t at, std::size_t size) {
  int number = 0;
  const char* begin = text.data() + at;
  if (!std::all_of(begin, begin + size, [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
  std::from_chars(begin, begin + size, number);
  return number;
}

}  // namespace

std::int64_t trail_now() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

TrailEntry make_trail_entry(std::string_view code, TrailSubject subject,
                            std::span<const std::string_view> names, std::span<const TrailValue> values) {
  Json fields = Json::object();
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (!std::holds_alternative<std::monostate>(values[i]))
      fields[std::string(names[i])] = json_of(values[i]);
  }
  subject.actor = valid_text(subject.actor);
  subject.machine = valid_text(subject.machine);
  subject.address = valid_text(subject.address);
  return {trail_now(), std::string(code), std::move(subject),
          fields.dump(-1, ' ', false, Json::error_handler_t::replace)};
}

std::string iso_time(std::int64_t time_ms) {
  using namespace std::chrono;
  const sys_time<milliseconds> time{milliseconds(time_ms)};
  const auto day = floor<days>(time);
  const year_month_day date{day};
  const hh_mm_ss clock{time - day};
  char text[64];
  std::snprintf(text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return text;
}

std::optional<std::int64_t> parse_iso_time(std::string_view text) {
  using namespace std::chrono;
  constexpr std::string_view kForm = "0000-00-00T00:00:00.000Z";
  if (text.size() != kForm.size()) return std::nullopt;
  std::array<int, 7> numbers{};
  std::size_t count = 0;
  for (std::size_t at = 0; at < kForm.size();) {
    if (kForm[at] != '0') {
      if (text[at] != kForm[at]) return std::nullopt;
      ++at;
      continue;
    }
    const std::size_t size = std::min(kForm.find_first_not_of('0', at), kForm.size()) - at;
    const auto number = number_at(text, at, size);
    if (!number) return std::nullopt;
    numbers[count++] = *number;
    at += size;
  }
  const year_month_day date{year(numbers[0]), month(static_cast<unsigned>(numbers[1])),
                            day(static_cast<unsigned>(numbers[2]))};
  if (!date.ok() || numbers[3] > 23 || numbers[4] > 59 || numbers[5] > 59) return std::nullopt;
  const auto time = sys_days(date) + hours(numbers[3]) + minutes(numbers[4]) + seconds(numbers[5]) +
                    milliseconds(numbers[6]);
  return duration_cast<milliseconds>(time.time_since_epoch()).count();
}

}  // namespace vlk::relay
