// A debug log that belongs to one test: a native build writes its log into the folder that TMPDIR names.
#pragma once

#include <filesystem>
#include <string>

#include "support/temp_folder.h"

namespace vantelink_test {

// Points TMPDIR at an empty folder until destruction. Not for tests that read or write the environment from
// several threads.
class LogFolder {
 public:
  LogFolder();  // throws std::runtime_error when no folder can be made
  ~LogFolder();
  LogFolder(const LogFolder&) = delete;
  LogFolder& operator=(const LogFolder&) = delete;

  std::string text() const;  // the text of the log; empty when there is no log
  const std::filesystem::path& path() const { return folder_.path(); }

 private:
  const TempFolder folder_;
  std::string previous_;  // the value of TMPDIR before this object
};

}  // namespace vantelink_test
