// The debug log: one open, one line, one close, and silence where the file cannot be had.
#include "platform/debug_log.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace vlk {
namespace {

class DebugLogTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "vlk-log-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    before_ = Variable("TMPDIR");
    setenv("TMPDIR", folder_.c_str(), 1);
  }
  void TearDown() override {
    if (before_.empty()) {
      unsetenv("TMPDIR");
    } else {
      setenv("TMPDIR", before_.c_str(), 1);
    }
    std::filesystem::remove_all(folder_);
  }

  static std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
  }
  std::string Log() const {
    std::ostringstream text;
    text << std::ifstream(folder_ / "vlkagent.log").rdbuf();
    return text.str();
  }

  std::filesystem::path folder_;
  std::string before_;
};

TEST_F(DebugLogTest, LinesAreAppendedAsFormattedAndNothingIsAdded) {
  append_debug_log("[inject] key down=%u vk=0x%X scan=0x%X ext=%u\n", 1u, 0x41u, 0x1Eu, 0u);
  append_debug_log("[inject] SendInput n=%zu OK\n", std::size_t{2});
  EXPECT_EQ(Log(), "[inject] key down=1 vk=0x41 scan=0x1E ext=0\n[inject] SendInput n=2 OK\n");
}

TEST_F(DebugLogTest, FileThatCannotBeOpenedDropsTheLine) {
  setenv("TMPDIR", (folder_ / "missing").c_str(), 1);
  append_debug_log("lost\n");
  EXPECT_FALSE(std::filesystem::exists(folder_ / "missing"));
}

TEST_F(DebugLogTest, ThePresenceOfTheVariableCountsAndNotItsValue) {
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
