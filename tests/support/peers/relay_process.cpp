// Starts the child with its output in a log file, from which the port is read.
#include "support/peers/relay_process.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string_view>

#include "support/bytes/file_bytes.h"
#include "support/waiting.h"

namespace vantelink_test {
namespace {

// The port in the log line that reports it; 0 until this line is complete.
int port_in(const std::string& log) {
  constexpr std::string_view kListening = "listening on https://";
  const std::size_t line = log.find(kListening);
  if (line == std::string::npos || log.find('\n', line) == std::string::npos) return 0;
  return std::atoi(log.c_str() + log.find(':', line + kListening.size()) + 1);
}

[[noreturn]] void become_relay(const std::vector<std::string>& words, const std::string& log) {
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  const int input = ::open("/dev/null", O_RDONLY);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(output, STDERR_FILENO);
  std::vector<char*> arguments;
  for (const std::string& word : words)
    arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  ::execv(words.front().c_str(), arguments.data());
  ::_exit(127);
}

}  // namespace

std::string RelayProcess::program() {
  return std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path() / "vantelink-relay";
}

RelayProcess::RelayProcess(const std::string& data, const std::vector<std::string>& arguments)
    : log_path_(data + "/relay.log") {
  std::filesystem::create_directories(data);
  std::filesystem::permissions(data, std::filesystem::perms::owner_all);
  std::filesystem::remove(log_path_);  // the log of an earlier relay contains another port
  std::vector<std::string> words = {program(), "--address", "127.0.0.1", "--port", "0", "--data", data};
  words.insert(words.end(), arguments.begin(), arguments.end());
  pid_ = ::fork();
  if (pid_ < 0) throw std::runtime_error("cannot start the relay: fork failed");
  if (pid_ == 0) become_relay(words, log_path_);
  const bool listens = eventually([&] { return (port_ = port_in(log())) != 0; });
  if (!listens) throw std::runtime_error("the relay does not listen: " + log());
}

RelayProcess::~RelayProcess() {
  if (pid_ <= 0) return;
  ::kill(pid_, SIGTERM);
  ::waitpid(pid_, nullptr, 0);
}

void RelayProcess::kill() {
  ::kill(pid_, SIGKILL);
  ::waitpid(pid_, nullptr, 0);
  pid_ = 0;
}

std::string RelayProcess::log() const {
  return file_bytes(log_path_);
}

int RelayProcess::logged(const std::string& text) const {
  const std::string all = log();
  int count = 0;
  for (std::size_t at = 0; (at = all.find(text, at)) != std::string::npos; at += text.size())
    ++count;
  return count;
}

}  // namespace vantelink_test
