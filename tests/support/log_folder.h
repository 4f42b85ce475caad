// A debug log of a test's own: a native build writes into the folder that TMPDIR names.
#pragma once

#include <filesystem>
#include <string>

namespace vantelink_test {

// An empty temporary folder while it lives. For one thread, as the environment is the process's.
class LogFolder {
 public:
  LogFolder();  // throws std::runtime_error when there is no folder to be had
  ~LogFolder();
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;

  std::string text() const;  // of the log; empty when there is none
  const std::filesystem::path& path() const { return folder_; }

 private:
  std::filesystem::path folder_;
  std::string before_;
};

}  // namespace vantelink_test
