// The relay's executable as a child process, for tests of the whole program.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vantelink_test {

// Runs the relay until destruction, and at the latest until the test's process ends. The relay listens on a
// free port of the loopback address.
class RelayProcess {
 public:
  // `data` is the relay's data folder; `arguments` are given to it besides address, port and data folder.
  // Throws std::runtime_error when the relay does not listen in time.
  RelayProcess(const std::string& data, const std::vector<std::string>& arguments);
  ~RelayProcess();
  RelayProcess(const RelayProcess&) = delete;
  RelayProcess& operator=(const RelayProcess&) = delete;

  // Ends the process at once, as a power failure does.
  void kill();
  // The executable's path, in the build tree of the test.
  static std::string program();
  int port() const { return port_; }
  pid_t pid() const { return pid_; }
  std::string log() const;  // all that the relay has logged so far
  // The number of times that the text occurs in the log.
  int logged(const std::string& text) const;

 private:
  std::string log_path_;
  pid_t pid_ = 0;
  int port_ = 0;
};

}  // namespace vantelink_test
