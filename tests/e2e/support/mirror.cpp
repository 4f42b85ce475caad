// Starts and ends the programs.
#include "e2e/support/mirror.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/bytes/file_bytes.h"

namespace vantelink_test {

DisplayProgram::DisplayProgram(const Desk& desk, const std::string& name, const std::string& arguments) {
  static int count = 0;
  const std::string output = desk.folder() + '/' + name + std::to_string(++count) + ".out";
  pid_ = std::atoi(desk.host("'" VANTELINK_SOURCE_DIR "/build/host/tests/doubles/" + name + "' " + arguments +
                             " > '" + output + "' 2>&1 < /dev/null & echo $!")
                       .c_str());
  const bool ready = eventually(
      [&] { return file_bytes(output).find("ready\n") != std::string::npos || !is_running(pid_); });
  if (ready && is_running(pid_)) return;
  kill();
  throw std::runtime_error(name + " did not start: " + file_bytes(output));
}

DisplayProgram::~DisplayProgram() {
  kill();
}

void DisplayProgram::kill() {
  if (pid_ > 0) ::kill(pid_, SIGKILL);
  (void)eventually([&] { return !is_running(pid_); });
  pid_ = 0;
}

double processor_seconds(int pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string text;
  std::getline(file, text);
  // The user time and the system time are the 12th and 13th words after the name, which is in parentheses.
  std::istringstream words(text.substr(text.rfind(')') + 1));
  std::string word;
  for (int i = 0; i < 11; ++i)
    words >> word;
  double user = 0, system = 0;
  words >> user >> system;
  return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace vantelink_test
