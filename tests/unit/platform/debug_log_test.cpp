// The debug log: each line is appended to the file, or dropped if the file cannot be opened.
#include "platform/debug_log.h"

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "support/log_folder.h"

namespace vlk {
namespace {

using vantelink_test::LogFolder;

TEST(DebugLogTest, LinesAreAppendedAsFormatted) {
  const LogFolder folder;
  append_debug_log("[inject] key down=%u vk=0x%X scan=0x%X ext=%u\n", 1u, 0x41u, 0x1Eu, 0u);
  append_debug_log("[inject] SendInput n=%zu OK\n", std::size_t{2});
  EXPECT_EQ(folder.text(), "[inject] key down=1 vk=0x41 scan=0x1E ext=0\n[inject] SendInput n=2 OK\n");
}

TEST(DebugLogTest, LineIsDroppedIfTheFileCannotBeOpened) {
  const LogFolder folder;
  setenv("TMPDIR", (folder.path() / "missing").c_str(), 1);
  append_debug_log("lost\n");
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "missing"));
}

TEST(DebugLogTest, EnvironmentVariableWithAnyValueRequestsTheLog) {
  unsetenv("VLK_DEBUG_INPUT");
  EXPECT_FALSE(debug_input_requested());
  for (const char* value : {"1", "0", ""}) {
    setenv("VLK_DEBUG_INPUT", value, 1);
    EXPECT_TRUE(debug_input_requested()) << '"' << value << '"';
  }
  unsetenv("VLK_DEBUG_INPUT");
}

}  // namespace
}  // namespace vlk
