// Puts a text on the clipboard before each test and reads back what a payload has made of it.
#include "tests/windows/clipboard/apply_fixture.h"

#include <algorithm>

#include "clipboard/apply_win32.h"
#include "clipboard/echo_guard.h"

namespace vlk::agent {

void ApplyTest::SetUp() {
  ClipboardTest::SetUp();
  on_clipboard([] { put_text(L"what was there before"); });
}

void ApplyTest::apply(ClipboardKind kind, std::string_view content) {
  ApplyClipboard(payload(kind, content));
}

std::string ApplyTest::drop(const std::vector<std::wstring>& names) {
  std::vector<std::wstring> paths;
  for (const std::wstring& name : names)
    paths.push_back(scratch() + name);
  return drop_block(paths);
}

bool ApplyTest::guard_is_set() {
  return ClipboardEchoGuardUntil == clip::script.tick + 500;
}

std::vector<std::wstring> ApplyTest::names_in(const std::filesystem::path& folder) {
  std::vector<std::wstring> names;
  std::error_code missing;
  for (const auto& found : std::filesystem::recursive_directory_iterator(folder, missing))
    names.push_back(found.path().lexically_relative(folder).wstring());
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace vlk::agent
