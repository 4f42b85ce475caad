// Finds rows of the trail by person, machine, kind, time and text, page by page from the newest to the
// oldest.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "relay/storage/database.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {

// Each member that is set reduces the rows. All texts are compared as they are, except `text`.
struct TrailFilter {
  std::optional<std::string> person{};
  std::optional<std::string> machine{};  // its id
  std::optional<std::string> kind{};     // a code
  std::optional<std::int64_t> from_ms{};
  std::optional<std::int64_t> to_ms{};  // inclusive
  // Part of the actor, the address or a text in the fields, without regard to case. At least kShortestSearch
  // characters.
  std::optional<std::string> text{};

  [[nodiscard]] bool empty() const { return !person && !machine && !kind && !from_ms && !to_ms && !text; }
};

inline constexpr std::size_t kShortestSearch = 3;   // characters, because the index holds groups of three
inline constexpr std::size_t kLongestSearch = 200;  // bytes
inline constexpr std::size_t kLargestPage = 500;    // rows

// A sentence that says what is wrong with the filter; empty if nothing is.
[[nodiscard]] std::string filter_fault(const TrailFilter& filter);

struct TrailPage {
  std::vector<TrailRow> rows{};
  // The rows that have not been searched have smaller ids than this; 0 if all were searched. A search that
  // takes long ends before the page is full.
  std::int64_t next = 0;
};

// The time that a search may take before it returns what it has.
inline constexpr std::chrono::milliseconds kSearchTime{120};

// The newest rows that fit, with ids below `before` if it is not 0. Throws DatabaseError.
[[nodiscard]] TrailPage find_rows(Database& database, const TrailFilter& filter, std::int64_t before,
                                  std::size_t limit, std::chrono::milliseconds time = kSearchTime);

// The oldest rows that fit, with ids of at least `first` and at most `last`, for an export. `next` is the
// first id that has not been searched, or 0.
[[nodiscard]] TrailPage find_rows_upwards(Database& database, const TrailFilter& filter, std::int64_t first,
                                          std::int64_t last, std::size_t limit,
                                          std::chrono::milliseconds time = kSearchTime);

}  // namespace vlk::relay
