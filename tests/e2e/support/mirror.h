// The programs of tests/doubles/mirror on a test's desk.
#pragma once

#include <string>

#include "e2e/support/agent_fixture.h"

namespace vantelink_test {

// A native program that runs on the desk's display until the object is destroyed.
class DisplayProgram {
 public:
  // Starts the program and waits until it prints "ready". Throws std::runtime_error if it does not.
  DisplayProgram(const Desk& desk, const std::string& name, const std::string& arguments);
  ~DisplayProgram();
  DisplayProgram(const DisplayProgram&) = delete;
  DisplayProgram& operator=(const DisplayProgram&) = delete;

  int pid() const { return pid_; }
  void kill();  // and waits for the end

 private:
  int pid_ = 0;
};

// The time, in seconds, that the threads of a process have used of a processor.
double processor_seconds(int pid);

}  // namespace vantelink_test
