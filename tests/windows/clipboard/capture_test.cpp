// What a change of a real clipboard sends: the choice of a format, texts, and the guard against sending back
// content that was just applied.
#include <algorithm>

#include "clipboard/apply_win32.h"
#include "clipboard/echo_guard.h"
#include "clipboard/watch.h"
#include "clipboard/watch_win32.h"
#include "tests/windows/clipboard/capture_fixture.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;

TEST_F(CaptureTest, FilesArePreferredToTextAndTextToAnImage) {
  const std::wstring file = file_of(L"a", 3);
  on_clipboard([&] {
    put_bitmap(two_pixels());
    put_text(L"words");
    put_files({file});
  });
  EXPECT_EQ(update(), "files 1 a 3");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(two_pixels());
    put_text(L"words");
  });
  EXPECT_EQ(update(), "text words");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(two_pixels());
  });
  EXPECT_EQ(update(), "image");
}

TEST_F(CaptureTest, UnsupportedFormatsAndAnEmptyClipboardSendNothing) {
  EXPECT_EQ(update(), "");
  on_clipboard([] { put(RegisterClipboardFormatW(L"HTML Format"), "<b>", 4); });
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "close", "tick", "open", "close"}));
}

TEST_F(CaptureTest, TextIsSentAfterTheClipboardIsClosed) {
  on_clipboard([] { put_text(L"Þú 😀\r\n\U0001F4A9"); });
  EXPECT_EQ(update(), "text Þú 😀\r\n💩");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 13", "close", "sink"}));
}

TEST_F(CaptureTest, EmptyTextIsSentAsAKindWithoutContent) {
  on_clipboard([] { put_text(L""); });
  EXPECT_EQ(update(), "text ");
  EXPECT_EQ(sent_[0], Bytes({1}));
}

TEST_F(CaptureTest, CopiedTextEndsAtItsFirstZeroCharacter) {
  on_clipboard([] { put_text(std::wstring_view(L"seen\0hidden", 11)); });
  EXPECT_EQ(update(), "text seen");
}

TEST_F(CaptureTest, UnpairedSurrogatesAreReplaced) {
  on_clipboard([] { put_text(std::wstring(L"a") + static_cast<wchar_t>(0xD800) + L"z"); });
  EXPECT_EQ(update(), "text a\uFFFDz");
}

TEST_F(CaptureTest, CopiedTextIsSentWithoutASizeLimit) {
  const std::wstring text(9 * kMebibyte, L'x');
  on_clipboard([&] { put_text(text); });
  EXPECT_TRUE(update() == "text " + std::string(text.size(), 'x'));
}

TEST_F(CaptureTest, TextThatIsCopiedTwiceIsSentTwice) {
  on_clipboard([] { put_text(L"again"); });
  EXPECT_EQ(update(), "text again");
  EXPECT_EQ(update(), "text again");
}

TEST_F(CaptureTest, NoOtherFormatIsTriedIfTheChosenFormatHasNoData) {
  on_clipboard([] { put_text(L"words"); });
  script.refuse_data = true;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 13", "close"}));
  on_clipboard([&] { put_files({L"C:\\x"}); });
  EXPECT_EQ(update(), "");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(two_pixels());
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, TextWhoseMemoryCannotBeLockedIsNotSent) {
  on_clipboard([] { put_text(L"words"); });
  script.refuse_lock = true;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 13", "close"}));
}

TEST_F(CaptureTest, ClipboardIsSentOnlyDuringAnActiveSession) {
  on_clipboard([] { put_text(L"before the stream"); });
  SetClipboardSessionActive(false);
  EXPECT_EQ(update(), "");
  EXPECT_TRUE(script.calls.empty()) << "the clipboard is not even opened";
  SetClipboardSessionActive(true);
  EXPECT_TRUE(sent_.empty()) << "content copied before the session is not sent when the session starts";
  EXPECT_EQ(update(), "text before the stream");
}

TEST_F(CaptureTest, ClipboardIsNotOpenedWithoutASinkForItsContent) {
  StartClipboardWatch(window_, nullptr);
  EXPECT_EQ(script.calls, Lines({"listen"}));
  script.calls.clear();
  on_clipboard([] { put_text(L"x"); });
  EXPECT_EQ(update(), "");
  EXPECT_TRUE(script.calls.empty());
  StartClipboardWatch(window_, sink());
}

TEST_F(CaptureTest, ClipboardUpdateIsDroppedWhileTheClipboardIsInUse) {
  on_clipboard([] { put_text(L"x"); });
  script.refuse_open = true;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open"})) << "opening the clipboard is not retried";
}

TEST_F(CaptureTest, AppliedContentIsNotSentBackAndALaterCopyIsSent) {
  ApplyClipboard(PackClip(ClipboardKind::Text, "from the representative"));
  script.calls.clear();
  script.tick += 100;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(std::count(script.calls.begin(), script.calls.end(), "open"), 0);
  script.tick += 500;
  EXPECT_TRUE(sent_.empty()) << "a dropped update is not sent later";
  on_clipboard([] { put_text(L"the user's own"); });
  EXPECT_EQ(update(), "text the user's own");
}

TEST_F(CaptureTest, EchoGuardEndsHalfASecondAfterTheContentWasApplied) {
  ApplyClipboard(PackClip(ClipboardKind::Text, "x"));
  script.tick += 499;
  EXPECT_EQ(update(), "");
  script.tick += 1;
  EXPECT_EQ(update(), "text x");
}

TEST_F(CaptureTest, ContentThatCannotBeAppliedSetsTheEchoGuardToo) {
  ApplyClipboard({7});
  on_clipboard([] { put_text(L"x"); });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, ClipboardUpdateIsSentWhenTheEchoGuardsTickCountWrapsAround) {
  script.tick = 0xFFFFFFFF - 200;
  ApplyClipboard(PackClip(ClipboardKind::Text, "echo"));
  EXPECT_EQ(ClipboardEchoGuardUntil, 299u);
  script.tick += 100;
  EXPECT_EQ(update(), "text echo");
}

}  // namespace
}  // namespace vlk::agent
