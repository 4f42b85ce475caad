// A scripted service manager, with tokens and processes: each call is recorded in order and fails on demand.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

namespace vlk::test {

using Lines = std::vector<std::string>;

// What the system answers. Its handles are numbers that no real handle has.
struct ServiceScript {
  Lines calls;
  std::set<std::string> failing;  // names of calls
  DWORD create_error = ERROR_ACCESS_DENIED;
  DWORD session = 1;
  std::vector<DWORD> controls;  // sent to the handler as soon as the service reports that it runs
  LPHANDLER_FUNCTION_EX handler = nullptr;
  bool member = true;  // of the administrators
  int open_handles = 0;
};
extern ServiceScript script;
extern DWORD last_check_point;  // counts up during the whole process, so across all tests

// Begins with a fresh script. Checks at the end that every handle is closed.
class ServiceTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace vlk::test
