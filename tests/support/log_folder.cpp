// The folder and the variable that leads to it.
#include "support/log_folder.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vantelink_test {

LogFolder::LogFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vlk-log-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make " + pattern);
  folder_ = pattern;
  const char* const before = std::getenv("TMPDIR");
  before_ = before != nullptr ? before : "";
  setenv("TMPDIR", folder_.c_str(), 1);
}

LogFolder::~LogFolder() {
  if (before_.empty()) {
    unsetenv("TMPDIR");
  } else {
    setenv("TMPDIR", before_.c_str(), 1);
  }
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

std::string LogFolder::text() const {
  std::ostringstream text;
  text << std::ifstream(folder_ / "vlkagent.log").rdbuf();
  return text.str();
}

}  // namespace vantelink_test
