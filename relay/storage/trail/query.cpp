// Searches the trail in ranges of ids, so that each search ends in time however many rows there are.
#include "relay/storage/trail/query.h"

#include <algorithm>
#include <functional>

#include "relay/base/text.h"
#include "relay/storage/trail/tables.h"

namespace vlk::relay {
namespace {

using Steady = std::chrono::steady_clock;

// The range of ids that is searched first, and the largest factor between a range and the next.
constexpr std::int64_t kFirstRange = 10'000;
constexpr std::int64_t kRangeGrowth = 4;

struct IdRange {
  std::int64_t first = 0;
  std::int64_t last = 0;  // inclusive; below `first` for an empty range
};

// The characters of a valid UTF-8 text.
std::size_t characters(const std::string& text) {
  return static_cast<std::size_t>(
      std::ranges::count_if(text, [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
}

std::int64_t time_of(Database& database, std::int64_t id) {
  Statement query(database, "SELECT time FROM trail WHERE id = ?");
  if (!query.bind(id).step()) throw DatabaseError("The trail has no row " + std::to_string(id) + '.');
  return query.number(0);
}

// The first id of the range whose time is at least `time_ms`; range.last + 1 if there is none. Within the
// range the time never falls.
std::int64_t first_at(Database& database, IdRange range, std::int64_t time_ms) {
  while (range.first <= range.last) {
    const std::int64_t middle = range.first + (range.last - range.first) / 2;
    if (time_of(database, middle) < time_ms) {
      range.first = middle + 1;
    } else {
      range.last = middle - 1;
    }
  }
  return range.first;
}

// The ranges of ids, from the oldest to the newest, whose rows fit the filter's times. A range ends where the
// clock was set back.
std::vector<IdRange> ranges_of(Database& database, const TrailFilter& filter, IdRange all) {
  std::vector<IdRange> rising{all};
  Statement steps(database, "SELECT id FROM trail_steps WHERE id > ? AND id <= ? ORDER BY id");
  steps.bind(all.first).bind(all.last);
  while ((filter.from_ms || filter.to_ms) && steps.step()) {
    rising.back().last = steps.number(0) - 1;
    rising.push_back({steps.number(0), all.last});
  }
  std::vector<IdRange> result;
  for (const IdRange& range : rising) {
    IdRange part = range;
    if (filter.from_ms) part.first = first_at(database, range, *filter.from_ms);
    if (filter.to_ms) part.last = first_at(database, range, *filter.to_ms + 1) - 1;
    if (part.first <= part.last) result.push_back(part);
  }
  return result;
}

// The statement that finds the rows of a range. Its parameters: the filter's texts, the range, the limit. The
// text index is the narrowest way in where the filter has a text.
std::string search_sql(Dialect dialect, const TrailFilter& filter, bool upwards) {
  std::string sql = "SELECT " + std::string(kTrailColumns) + " FROM trail WHERE ";
  if (filter.person) sql += "actor = ? AND ";
  if (filter.machine) sql += "machine = ? AND ";
  if (filter.kind) sql += "code = ? AND ";
  if (filter.text) sql += text_condition(dialect) + " AND ";
  return sql + "id BETWEEN ? AND ? ORDER BY id " + (upwards ? "" : "DESC ") + "LIMIT ?";
}

void search_range(Database& database, const TrailFilter& filter, const IdRange& range, bool upwards,
                  std::size_t limit, std::vector<TrailRow>& rows) {
  Statement query(database, search_sql(database.dialect(), filter, upwards).c_str());
  for (const auto* text : {&filter.person, &filter.machine, &filter.kind}) {
    if (*text) query.bind(**text);
  }
  if (filter.text)
    query.bind(text_pattern(database.dialect(), *filter.text)).bind(range.first).bind(range.last);
  query.bind(range.first).bind(range.last).bind(static_cast<std::int64_t>(limit - rows.size()));
  while (query.step())
    rows.push_back(read_trail_row(query));
}

IdRange all_rows(Database& database) {
  Statement query(database, "SELECT (SELECT min(id) FROM trail), (SELECT max(id) FROM trail)");
  if (!query.step() || query.is_null(0)) return {1, 0};
  return {query.number(0), query.number(1)};
}

// A part of the range at the end where the search begins.
IdRange part_of(const IdRange& range, std::int64_t size, bool upwards) {
  if (range.last - range.first < size) return range;
  return upwards ? IdRange{range.first, range.first + size - 1} : IdRange{range.last - size + 1, range.last};
}

// The size of the range after one of `size` ids that took `took`. A range is searched as a whole, so its
// expected time is at most half of what is left.
std::int64_t next_size(std::int64_t size, Steady::duration took, Steady::duration left) {
  const auto fitting = static_cast<double>(left.count()) / (2.0 * static_cast<double>(took.count() + 1));
  const double growth = std::clamp(fitting, 1.0 / kRangeGrowth, 1.0 * kRangeGrowth);
  return std::max(kFirstRange, static_cast<std::int64_t>(growth * static_cast<double>(size)));
}

TrailPage search(Database& database, const TrailFilter& filter, IdRange all, bool upwards, std::size_t limit,
                 std::chrono::milliseconds time) {
  const auto deadline = Steady::now() + time;
  std::vector<IdRange> ranges = ranges_of(database, filter, all);
  if (!upwards) std::ranges::reverse(ranges);
  TrailPage page;
  bool out_of_time = false;
  std::int64_t size = kFirstRange;
  for (IdRange range : ranges) {
    while (range.first <= range.last) {
      if (page.rows.size() == limit || out_of_time) {
        page.next = upwards ? range.first : range.last + 1;
        return page;
      }
      const IdRange part = part_of(range, size, upwards);
      const auto begin = Steady::now();
      search_range(database, filter, part, upwards, limit, page.rows);
      // The page may have become full before the end of the part.
      const bool full = page.rows.size() == limit;
      if (upwards) range.first = (full ? page.rows.back().id : part.last) + 1;
      if (!upwards) range.last = (full ? page.rows.back().id : part.first) - 1;
      const auto end = Steady::now();
      size = next_size(size, end - begin, deadline - end);
      out_of_time = end >= deadline;
    }
  }
  return page;
}

}  // namespace

std::string filter_fault(const TrailFilter& filter) {
  for (const auto* text : {&filter.person, &filter.machine, &filter.kind, &filter.text}) {
    if (*text && (*text)->size() > kLongestSearch) return "A text of the filter is too long.";
    if (*text && !is_text(**text)) return "A text of the filter is not valid UTF-8, or has a null character.";
  }
  if (!filter.text) return {};
  if (has_control(*filter.text)) return "The text to search for has a control character.";
  if (characters(*filter.text) < kShortestSearch)
    return "The text to search for needs at least three characters.";
  return {};
}

TrailPage find_rows(Database& database, const TrailFilter& filter, std::int64_t before, std::size_t limit,
                    std::chrono::milliseconds time) {
  const Snapshot snapshot(database);
  IdRange all = all_rows(database);
  if (before > 0) all.last = std::min(all.last, before - 1);
  return search(database, filter, all, false, limit, time);
}

TrailPage find_rows_upwards(Database& database, const TrailFilter& filter, std::int64_t first,
                            std::int64_t last, std::size_t limit, std::chrono::milliseconds time) {
  const Snapshot snapshot(database);
  IdRange all = all_rows(database);
  all = {std::max(all.first, first), std::min(all.last, last)};
  return search(database, filter, all, true, limit, time);
}

}  // namespace vlk::relay
