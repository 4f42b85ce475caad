// The shipped executable on a desk.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

#include "support/desk/desk.h"

namespace vantelink_bench {

// A way by which the agent captures the screen. In the texts of environment and helper, {folder} stands for
// the folder of the agent's executable, and {windows-folder} for the same folder as programs under Wine see
// it.
struct CapturePath {
  std::string name{};
  std::vector<std::string> environment{};  // of the agent: NAME=VALUE
  std::vector<std::string> files{};        // copied into the agent's folder; paths in this source tree
  // A program of this host, as a path in this source tree, and its arguments. It is started on the desk's
  // display before the agent, and has to print a line when it is ready. Empty for none.
  std::vector<std::string> helper{};
};

class AgentProcess {
 public:
  // Copies the executable and what its way of capturing needs into a folder of the desk, and forgets the
  // desk's settings of the agent. Throws std::runtime_error when the helper does not become ready.
  AgentProcess(const vantelink_test::Desk& desk, const CapturePath& path);
  ~AgentProcess();
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  // Starts the agent, whose server has a certificate of this authority: a PEM file.
  void start(unsigned short port, const std::string& authority);
  // The agent and its helper.
  const std::vector<pid_t>& processes() const { return processes_; }
  // Where the executable is; it may hold other files.
  const std::string& folder() const { return folder_; }

 private:
  void start_helper();

  const vantelink_test::Desk& desk_;
  CapturePath path_;
  std::string folder_;
  std::vector<pid_t> processes_;
};

}  // namespace vantelink_bench
