// A scripted service manager, with tokens and processes: each call is recorded in order and fails on demand.
#pragma once

#include <windows.h>

#include <functional>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vlk::test {

using Lines = std::vector<std::string>;

// What the scripted system answers. Its handles are numbers that no real handle has. Its calls are also
// counted calls (counted_calls.h) under the names that `failing` has.
struct ServiceScript {
  Lines calls;
  std::set<std::string> failing;  // names of the calls that fail
  DWORD create_error = ERROR_ACCESS_DENIED;
  DWORD session = 1;
  std::vector<DWORD> controls;  // controls sent to the handler as soon as the service reports that it runs
  LPHANDLER_FUNCTION_EX handler = nullptr;
  // Called with each session whose user's token is queried, before the query succeeds or fails.
  std::function<void(DWORD)> on_query;
  // Called before each wait for the stop or the agent, with the number of handles and the time limit.
  std::function<void(DWORD handles, DWORD milliseconds)> on_wait;
  bool waits_end_at_once = false;  // waits report their time limit without waiting
  bool member = true;              // whether the token belongs to the Administrators group
  int open_handles = 0;            // also counts the SID and the environment block
};
extern ServiceScript script;
extern DWORD last_check_point;  // increases during the whole process, across all tests

// Starts each test with a new script, and checks at the test's end that every handle is closed.
class ServiceTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
};

}  // namespace vlk::test
