// Sets TMPDIR and restores it.
#include "support/log_folder.h"

#include <cstdlib>

#include "support/bytes/file_bytes.h"

namespace vantelink_test {

LogFolder::LogFolder() {
  const char* const previous = std::getenv("TMPDIR");
  previous_ = previous != nullptr ? previous : "";
  setenv("TMPDIR", folder_.path().c_str(), 1);
}

LogFolder::~LogFolder() {
  if (previous_.empty()) {
    unsetenv("TMPDIR");
  } else {
    setenv("TMPDIR", previous_.c_str(), 1);
  }
}

std::string LogFolder::text() const {
  return file_bytes(folder_.path() / "vlkagent.log");
}

}  // namespace vantelink_test
