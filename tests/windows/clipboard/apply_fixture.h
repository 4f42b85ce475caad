// Fixture for tests of received clipboard content: applies payloads to a clipboard that holds a text.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "support/bytes/clip_bytes.h"
#include "tests/windows/clipboard/clipboard_fixture.h"

namespace vlk::agent {

// The content of a file payload: a count, which may be wrong, and the records.
template <typename... Records>
std::string list(std::uint32_t count, const Records&... records) {
  return vantelink_test::number(count, 4) + (std::string() + ... + records);
}

class ApplyTest : public ClipboardTest {
 protected:
  void SetUp() override;

  static void apply(ClipboardKind kind, std::string_view content);
  static void apply_text(std::string_view text) { apply(ClipboardKind::Text, text); }
  static void apply_files(std::string_view content) { apply(ClipboardKind::Files, content); }
  static void apply_png(std::string_view file) { apply(ClipboardKind::Image, file); }

  // The whole block of CF_HDROP for files with these names in the scratch folder.
  static std::string drop(const std::vector<std::wstring>& names);
  static bool guard_is_set();
  // The sorted paths of all files below the folder, relative to it.
  static std::vector<std::wstring> names_in(const std::filesystem::path& folder);
};

}  // namespace vlk::agent
