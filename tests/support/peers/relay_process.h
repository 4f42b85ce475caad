// The relay's own program, for tests that need all of it.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace vantelink_test {

// Runs as long as the object, and not longer than the test's process. Listens on a free port of this machine.
class RelayProcess {
 public:
  // `data` is its data folder, `arguments` what it gets besides. Throws std::runtime_error when it does not
  // listen in time.
  RelayProcess(const std::string& data, const std::vector<std::string>& arguments);
  ~RelayProcess();
  RelayProcess(const RelayProcess&) = delete;
  RelayProcess& operator=(const RelayProcess&) = delete;

  // Its path: it lies in the tree that the test was built in.
  static std::string program();
  int port() const { return port_; }
  std::string log() const;  // so far
  // How often the log holds the text.
  int logged(const std::string& text) const;

 private:
  std::string log_path_;
  pid_t pid_ = 0;
  int port_ = 0;
};

}  // namespace vantelink_test
