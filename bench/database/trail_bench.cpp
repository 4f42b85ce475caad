// Measures the audit trail with a million rows: how fast rows are added, the slowest page of each filter, and
// how fast the trail is verified.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "relay/base/secrets.h"
#include "relay/storage/trail/chain.h"
#include "relay/storage/trail/check/verify.h"
#include "relay/storage/trail/key.h"
#include "relay/storage/trail/query.h"
#include "relay/storage/trail/tables.h"

namespace {

using namespace vlk::relay;

constexpr std::int64_t kRows = 1'000'000;
constexpr std::size_t kBatch = 1000;
constexpr std::int64_t kStart = 1'700'000'000'000;
constexpr int kPeople = 40;
constexpr int kMachines = 2000;

TrailSubject subject_of(std::int64_t row) {
  // "anna" and "m-1" have half of all rows each, but none in common with the kind folder.listed.
  const bool common = row % 2 == 0;
  return {common ? "anna" : "person" + std::to_string(row % kPeople),
          row % 4 < 2 ? "m-1" : "m-" + std::to_string(row % kMachines),
          "192.0.2." + std::to_string(row % 250) + ':' + std::to_string(1024 + row % 60'000), row / 100};
}

TrailEntry entry_of(std::int64_t row) {
  const std::string path = "C:\\Users\\Public\\Documents\\report " + std::to_string(row) + ".docx";
  TrailEntry entry;
  if (row % 2 == 1 && row % 4 == 3) {
    entry = trail_entry<TrailKind::FolderListed>(subject_of(row), path, 3);
  } else if (row % 10 < 6) {
    entry =
        trail_entry<TrailKind::FileEnded>(subject_of(row), row, "to-machine", path, 4096, 4096, "complete");
  } else {
    entry = trail_entry<TrailKind::SessionEnded>(subject_of(row), "closed", row % 3600);
  }
  entry.time_ms = kStart + row * 100;
  return entry;
}

// A trail with kRows rows, made once for all benchmarks.
class Trail {
 public:
  Trail() {
    start_sodium();
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directories(folder_);
    key_ = std::make_unique<TrailKey>(TrailKey::load_or_make(folder_));
    database_ = std::make_unique<Database>(file());
    Transaction tables(*database_);
    create_trail(*database_);
    tables.commit();
    const auto begin = std::chrono::steady_clock::now();
    for (std::int64_t row = 0; row < kRows;)
      append(row);
    seconds_ = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  }
  ~Trail() { std::filesystem::remove_all(folder_); }
  Trail(const Trail&) = delete;
  Trail& operator=(const Trail&) = delete;

  static Trail& get() {
    static Trail trail;
    return trail;
  }
  Database& database() { return *database_; }
  [[nodiscard]] std::string file() const { return folder_ + "/relay.db"; }
  [[nodiscard]] double seconds() const { return seconds_; }
  [[nodiscard]] const TrailKey& key() const { return *key_; }

 private:
  void append(std::int64_t& row) {
    std::vector<TrailEntry> entries;
    while (entries.size() < kBatch)
      entries.push_back(entry_of(row++));
    Transaction transaction(*database_);
    append_trail(*database_, entries);
    if (row % (kRows / 10) == 0) sign_head(*database_, *key_);
    transaction.commit();
  }

  const std::string folder_ = (std::filesystem::temp_directory_path() / "vantelink-trail-bench").string();
  std::unique_ptr<TrailKey> key_;
  std::unique_ptr<Database> database_;
  double seconds_ = 0;
};

void append(benchmark::State& state) {
  for (auto _ : state)
    Trail::get();
  state.counters["rows_per_second"] = kRows / Trail::get().seconds();
  state.counters["bytes_per_row"] =
      static_cast<double>(std::filesystem::file_size(Trail::get().file())) / static_cast<double>(kRows);
}
BENCHMARK(append)->Iterations(1)->Unit(benchmark::kSecond);

struct NamedFilter {
  const char* name;
  TrailFilter filter;
};

const std::vector<NamedFilter>& filters() {
  static const std::vector<NamedFilter> all = {
      {"none", {}},
      {"person", {.person = "anna"}},
      {"person, no row", {.person = "nobody"}},
      {"machine", {.machine = "m-7"}},
      {"kind", {.kind = "file.ended"}},
      {"time, first rows", {.from_ms = kStart, .to_ms = kStart + 5000}},
      {"text", {.text = "report 777"}},
      {"text, one row", {.text = "report 1234.docx"}},
      {"text, no row", {.text = "Users\\Private"}},
      {"text, all trigrams common, no row", {.text = "docx closed Users"}},
      {"person and machine", {.person = "person7", .machine = "m-7"}},
      {"person and kind, no row", {.person = "anna", .kind = "folder.listed"}},
      {"person, machine and kind, no row", {.person = "anna", .machine = "m-1", .kind = "folder.listed"}},
      {"machine and kind, no row", {.machine = "m-1", .kind = "folder.listed"}},
      {"person and text, no row", {.person = "anna", .text = "report 3.docx"}},
      {"kind and common text", {.kind = "folder.listed", .text = "Documents"}},
      {"person, kind and common text, no row",
       {.person = "anna", .kind = "folder.listed", .text = "Documents"}},
      {"all",
       {.person = "anna",
        .machine = "m-1",
        .kind = "file.ended",
        .from_ms = kStart,
        .to_ms = kStart + 9'000'000,
        .text = "report"}},
  };
  return all;
}

// Asks for the pages of a filter one after the other, at most 20, and reports the slowest and whether a
// search had to be continued because its time was over.
void find(benchmark::State& state) {
  const NamedFilter& named = filters()[static_cast<std::size_t>(state.range(0))];
  state.SetLabel(named.name);
  double slowest = 0;
  int searches = 0;
  std::size_t rows = 0;
  for (auto _ : state) {
    std::int64_t before = 0;
    searches = 0;
    rows = 0;
    do {
      const auto begin = std::chrono::steady_clock::now();
      const TrailPage page = find_rows(Trail::get().database(), named.filter, before, 100);
      const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
      slowest = std::max(slowest, took.count());
      before = page.next;
      rows += page.rows.size();
    } while (++searches < 20 && before != 0);
  }
  state.counters["slowest_ms"] = slowest;
  state.counters["pages"] = searches;
  state.counters["rows"] = static_cast<double>(rows);
  if (slowest >= 200) state.SkipWithError("a page took 200 ms or more");
}
BENCHMARK(find)->DenseRange(0, 17)->Unit(benchmark::kMillisecond);

void verify(benchmark::State& state) {
  double seconds = 0;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    const TrailVerdict verdict = verify_database(Trail::get().file(), Trail::get().key().public_part());
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    if (!verdict.intact) state.SkipWithError(verdict.problem.c_str());
  }
  state.counters["rows_per_second"] = kRows / seconds;
}
BENCHMARK(verify)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
