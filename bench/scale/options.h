// What the benchmarks of whole programs do first: their options, and the limit of open files.
#pragma once

#include <sys/resource.h>

#include <algorithm>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace vantelink_bench {

// An option is written --NAME=VALUE.
struct Option {
  std::string name{};
  std::function<void(const std::string& value)> set{};
};

// Sets the options that are given. The filter of Google Benchmark is ignored. Throws std::runtime_error with
// a sentence for another argument, and std::invalid_argument for a value that is not a number.
inline void read_options(int argc, char** argv, const std::vector<Option>& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    const auto option = std::ranges::find_if(
        options, [&](const Option& candidate) { return argument.starts_with("--" + candidate.name + '='); });
    if (option != options.end()) {
      option->set(argument.substr(argument.find('=') + 1));
    } else if (!argument.starts_with("--benchmark_filter=")) {
      std::string names;
      for (const Option& known : options)
        names += " --" + known.name + "=VALUE";
      throw std::runtime_error("the options are" + names);
    }
  }
}

// Raises this process's limit of open files as far as the system allows. Returns the limit.
inline rlim_t raise_open_files() {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  return limit.rlim_cur;
}

}  // namespace vantelink_bench
