// Listings of large folders as JSON, compared with the bare enumeration.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

#include "support/temp_folder.h"
#include "transfer/directory.h"

namespace {

using vantelink_test::TempFolder;

// A folder with `entries` empty files. It is kept until the program ends, because both benchmarks list it.
const TempFolder& folder_of(std::int64_t entries) {
  static std::vector<std::pair<std::int64_t, std::unique_ptr<TempFolder>>> made;
  for (const auto& [count, one] : made) {
    if (count == entries) return *one;
  }
  auto one = std::make_unique<TempFolder>();
  for (std::int64_t i = 0; i < entries; ++i)
    one->write("document " + std::to_string(i) + ".txt", "");
  made.emplace_back(entries, std::move(one));
  return *made.back().second;
}

void List(benchmark::State& state) {
  const std::string path = folder_of(state.range(0)).windows_path();
  for (auto step : state)
    benchmark::DoNotOptimize(vlk::agent::ListDirectory(path));
  state.SetComplexityN(state.range(0));
}

// Enumerates the entries with their sizes and times through this host's functions, and forms no JSON.
void ListBare(benchmark::State& state) {
  const std::string path = folder_of(state.range(0)).path().string();
  for (auto step : state) {
    DIR* const opened = ::opendir(path.c_str());
    std::int64_t sum = 0;
    while (const dirent* const entry = ::readdir(opened)) {
      struct stat status {};
      if (::fstatat(::dirfd(opened), entry->d_name, &status, 0) == 0) sum += status.st_size + status.st_mtime;
    }
    ::closedir(opened);
    benchmark::DoNotOptimize(sum);
  }
  state.SetComplexityN(state.range(0));
}

BENCHMARK(List)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Complexity();
BENCHMARK(ListBare)->Arg(1'000)->Arg(10'000)->Arg(100'000)->Unit(benchmark::kMillisecond)->Complexity();

}  // namespace
