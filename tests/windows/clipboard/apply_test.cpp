// Received content on a real clipboard: texts, unknown kinds, and the log lines.
#include <cstdlib>

#include "clipboard/apply_win32.h"
#include "clipboard/echo_guard.h"
#include "clipboard/watch.h"
#include "platform/text.h"
#include "tests/windows/clipboard/apply_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;

TEST_F(ApplyTest, ReceivedTextReplacesTheContentOfTheClipboard) {
  apply_text("Þórður á 😀\n");
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring(L"Þórður á 😀\n") + L'\0'));
  EXPECT_EQ(script.calls, Lines({"open", "empty", "set 13", "close", "tick"}))
      << "the guard is set after the clipboard is closed";
  EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, EmptyPayloadDoesNothing) {
  ApplyClipboard({});
  EXPECT_TRUE(script.calls.empty());
  EXPECT_EQ(ClipboardEchoGuardUntil, 0u);
  EXPECT_FALSE(holds_nothing());
}

TEST_F(ApplyTest, PayloadOfAnEmptyTextPutsAnEmptyTextOnTheClipboard) {
  ApplyClipboard({1});
  ASSERT_EQ(script.memory.size(), 1u);
  EXPECT_EQ(script.memory.begin()->second, 2u) << "size in bytes";
  EXPECT_EQ(held(CF_UNICODETEXT), std::string(2, '\0'));
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, PayloadsOfUnknownKindsEmptyTheClipboard) {
  for (const int kind : {0, 4, 7, 255}) {
    on_clipboard([] { put_text(L"before"); });
    for (const std::string content : {"", "some content"}) {
      ClipboardEchoGuardUntil = 0;
      script.calls.clear();
      apply(static_cast<ClipboardKind>(kind), content);
      EXPECT_EQ(script.calls, Lines({"open", "empty", "close", "tick"})) << kind;
      EXPECT_TRUE(holds_nothing());
      EXPECT_TRUE(guard_is_set());
    }
  }
}

TEST_F(ApplyTest, ZeroCharactersInATextAreKept) {
  apply_text(std::string_view("a\0b\0", 4));
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring_view(L"a\0b\0\0", 5)));
}

TEST_F(ApplyTest, InvalidUtf8IsReplacedByTheSystemsRule) {
  const struct {
    const char* bytes;
    std::wstring text;
  } rows[] = {{"a\xFFz", L"a\uFFFDz"},      {"a\xFF\xFEz", L"a\uFFFD\uFFFDz"}, {"\xC3", L"\uFFFD"},
              {"\xC3z", L"\uFFFDz"},        {"\xC0\xAFz", L"\uFFFD\uFFFDz"},   {"\xF0\x9F\x98", L"\uFFFD"},
              {"\xF0\x9F\x98z", L"\uFFFDz"}};
  for (const auto& row : rows) {
    apply_text(row.bytes);
    EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(row.text + L'\0')) << testing::PrintToString(row.bytes);
  }
  // Systems differ in the number of replacements for an encoded surrogate.
  apply_text("\xED\xA0\x80z");
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(Utf8ToWide("\xED\xA0\x80z") + L'\0'));
  EXPECT_TRUE(held(CF_UNICODETEXT).starts_with("\xFD\xFF"));
  EXPECT_TRUE(held(CF_UNICODETEXT).ends_with(std::string("z\0\0\0", 4)));
}

TEST_F(ApplyTest, TextOfOneMebibyteIsAppliedCompletely) {
  std::string text;
  while (text.size() < 1 << 20)
    text += "línan " + std::to_string(text.size()) + '\n';
  apply_text(text);
  EXPECT_TRUE(held(CF_UNICODETEXT) == wide_bytes(Utf8ToWide(text) + L'\0'));
}

TEST_F(ApplyTest, ReceivedContentIsDroppedWhileTheClipboardIsInUse) {
  script.refuse_open = true;
  apply_text("lost");
  EXPECT_EQ(script.calls, Lines({"open"})) << "opening the clipboard is not retried";
  EXPECT_EQ(ClipboardEchoGuardUntil, 0u);
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring(L"what was there before") + L'\0'));
}

TEST_F(ApplyTest, MemoryIsNotFreedIfTheClipboardRefusesTheText) {
  script.refuse_set = true;
  apply_text("abc");
  EXPECT_EQ(script.memory.size(), 1u);
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, ReceivedContentIsAppliedEvenWithoutASession) {
  SetClipboardSessionActive(false);
  apply_text("x");
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring_view(L"x\0", 2)));
}

TEST_F(ApplyTest, EachPayloadIsLoggedWithItsResult) {
  test::remove_debug_log();
  apply_text("abc");
  ApplyClipboard({7});
  script.refuse_open = true;
  ApplyClipboard({3, 0});
  EXPECT_EQ(test::debug_log(),
            "clipboard: apply kind=1 len=3 OpenClipboard OK\n"
            "clipboard: apply kind=7 len=0 OpenClipboard OK\n"
            "clipboard: apply kind=3 OpenClipboard FAILED err=5\n");
  test::remove_debug_log();
}

// The variable is set before main, because the agent reads it once per process.
[[maybe_unused]] const int log_requested = _putenv("VLK_DEBUG_INPUT=1");

}  // namespace
}  // namespace vlk::agent
