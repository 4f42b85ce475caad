// Reads the files that the system has about a process.
#include "process.h"

#include <unistd.h>

#include <fstream>
#include <stdexcept>
#include <string>

namespace vantelink_bench {

double memory(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  double kib = 0;
  for (std::string word; status >> word;) {
    if (word == "VmRSS:" && status >> kib) return kib;
  }
  throw std::runtime_error("process " + std::to_string(pid) + " has ended");
}

double processor(pid_t pid) {
  constexpr int kUserTime = 14;  // the number of the field, see proc(5)
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string word;
  double user = 0, system = 0;
  for (int field = 1; field < kUserTime; ++field)
    file >> word;
  file >> user >> system;
  return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace vantelink_bench
