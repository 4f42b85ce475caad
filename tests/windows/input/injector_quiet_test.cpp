// Input without the environment variable "VLK_DEBUG_INPUT" writes no log. The agent reads the variable once
// per process, so this test is a program of its own.
#include <windows.h>

#include <cstdlib>

#include <gtest/gtest.h>

#include "input/injector.h"
#include "platform/debug_log.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

TEST(InjectorQuiet, ReadsTheEnvironmentVariableOnceAndWritesNoDebugLog) {
  _putenv("VLK_DEBUG_INPUT=");
  test::remove_debug_log();
  const unsigned char payload[] = {1, 2, 1, 1};
  InjectInputBatch(payload, sizeof(payload));
  EXPECT_FALSE(debug_input_requested());
  _putenv("VLK_DEBUG_INPUT=1");
  EXPECT_TRUE(debug_input_requested());
  InjectInputBatch(payload, sizeof(payload));
  EXPECT_EQ(test::debug_log(), "");
}

TEST(DebugLog, LinesAreAppendedOrDroppedIfTheFileCannotBeOpened) {
  test::remove_debug_log();
  append_debug_log("first %d\n", 1);
  append_debug_log("second %s %zu\n", "line", std::size_t{2});
  EXPECT_EQ(test::debug_log(), "first 1\nsecond line 2\n");
  test::remove_debug_log();
  CreateDirectoryA(test::debug_log_path().c_str(), nullptr);
  append_debug_log("lost\n");
  EXPECT_TRUE(RemoveDirectoryA(test::debug_log_path().c_str()));
}

}  // namespace
}  // namespace vlk::agent
