// Received clipboard content with each call of the system failing in turn: what is on the clipboard then, and
// that each block of memory is freed or given away exactly once.
#include <windows.h>

#include <algorithm>
#include <cwchar>
#include <filesystem>
#include <string>

#include "clipboard/echo_guard.h"
#include "platform/text.h"
#include "platform/win32/gdiplus_win32.h"
#include "support/bytes/clip_bytes.h"
#include "support/bytes/png.h"
#include "tests/windows/clipboard/apply_fixture.h"
#include "tests/windows/support/counted_calls.h"

using Gdiplus::DllExports::GdipCreateBitmapFromStream;
using Gdiplus::DllExports::GdipGetImageHeight;
using Gdiplus::DllExports::GdipGetImageWidth;

VLK_COUNTED("kernel32.dll", GetTempPathW, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", MultiByteToWideChar, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipCreateBitmapFromStream, Gdiplus::OutOfMemory, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipGetImageHeight, Gdiplus::OutOfMemory, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipGetImageWidth, Gdiplus::OutOfMemory, 0)

namespace vlk::agent {
namespace {

using clip::script;

// Blocks that were neither freed nor given away.
std::size_t lost_blocks() {
  return static_cast<std::size_t>(
      std::count_if(script.memory.begin(), script.memory.end(),
                    [](const auto& block) { return !script.given.contains(block.first); }));
}

std::string visible(std::string text) {
  std::replace(text.begin(), text.end(), '\0', '.');
  return text;
}

// `loses` is the call whose failure loses a block.
int expect_effects(const std::function<void()>& prepare, const std::function<void()>& work,
                   const std::function<std::string()>& result, const std::string& usual,
                   const test::Effects& effects, const std::string& loses = "none") {
  const auto reset = [&] {
    prepare();
    script = {};
  };
  return test::expect_effects({
      .prepare = reset,
      .work = work,
      .result = result,
      .usual = usual,
      .effects = effects,
      .check = [&](const std::string& failed) { EXPECT_EQ(lost_blocks(), failed == loses ? 1u : 0u); },
  });
}

class ApplyFaults : public ApplyTest {
 protected:
  void TearDown() override { std::filesystem::remove_all(L"VlkClip"); }

  static void prepare() {
    remove_scratch();
    std::filesystem::remove_all(L"VlkClip");
    ClipboardEchoGuardUntil = 0;
    on_clipboard([] {
      EmptyClipboard();
      put_text(L"before");
    });
  }

  static std::string guarded(const std::string& content) {
    return content + (guard_is_set() ? " guarded" : " unguarded");
  }

  static std::string text() {
    if (holds_nothing()) return guarded("nothing");
    const std::string bytes = held(CF_UNICODETEXT);
    const std::wstring wide(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
    return guarded(visible(WideToUtf8(wide)));
  }

  // The files on the clipboard with their content; a relative folder is written before the name.
  static std::string files() {
    if (holds_nothing()) return guarded("nothing");
    if (!IsClipboardFormatAvailable(CF_HDROP)) return guarded("before");
    std::string list;
    const std::string block = held(CF_HDROP);
    const auto* path = reinterpret_cast<const wchar_t*>(block.data() + vantelink_test::kDropHeader.size());
    for (; *path != 0; path += std::wcslen(path) + 1) {
      const std::filesystem::path file = path;
      if (!list.empty()) list += ' ';
      if (!file.is_absolute()) list.append(file.parent_path().string()).push_back('/');
      list.append(file.filename().string()).append("=").append(read(path));
    }
    return guarded(list);
  }
};

TEST_F(ApplyFaults, TextThatCannotBePutOnTheClipboardLeavesItEmpty) {
  const test::Effects effects = {{"OpenClipboard 1", "before. unguarded"},
                                 {"MultiByteToWideChar 1", ". guarded"},
                                 {"MultiByteToWideChar 2", "..... guarded"},
                                 {"GlobalAlloc 1", "nothing guarded"},
                                 {"SetClipboardData 1", "nothing guarded"}};
  // The block of a refused text is deliberately lost.
  EXPECT_EQ(expect_effects(
                prepare, [] { apply_text("Esja"); }, text, "Esja. guarded", effects, "SetClipboardData 1"),
            6);
}

TEST_F(ApplyFaults, FileThatCannotBeCreatedIsLeftOut) {
  using vantelink_test::number;
  using vantelink_test::record;
  const std::string content = number(2, 4) + record("a.txt", "one") + record("b.txt", "two");
  const test::Effects effects = {{"OpenClipboard 1", "before unguarded"},
                                 // The folder is then a relative path.
                                 {"GetTempPathW 1", "VlkClip/a.txt=one VlkClip/b.txt=two guarded"},
                                 {"CreateDirectoryW 1", "nothing guarded"},
                                 {"MultiByteToWideChar 1", "b.txt=two guarded"},
                                 {"MultiByteToWideChar 2", "b.txt=two guarded"},
                                 {"CreateFileW 1", "b.txt=two guarded"},
                                 {"WriteFile 1", "a.txt= b.txt=two guarded"},
                                 {"MultiByteToWideChar 3", "a.txt=one guarded"},
                                 {"MultiByteToWideChar 4", "a.txt=one guarded"},
                                 {"CreateFileW 2", "a.txt=one guarded"},
                                 {"WriteFile 2", "a.txt=one b.txt= guarded"},
                                 {"GlobalAlloc 1", "nothing guarded"},
                                 {"SetClipboardData 1", "nothing guarded"}};
  EXPECT_EQ(expect_effects(
                prepare, [&] { apply_files(content); }, files, "a.txt=one b.txt=two guarded", effects),
            14);
}

TEST_F(ApplyFaults, ImageThatCannotBeDecodedOrCopiedLeavesTheClipboardEmpty) {
  const std::string file = vantelink_test::make_png(2, 1, std::string("\1\2\3\xFF\4\5\6\xFF", 8));
  const auto image = [] {
    if (holds_nothing()) return guarded("nothing");
    return guarded(IsClipboardFormatAvailable(CF_DIB) ? std::to_string(held(CF_DIB).size()) : "before");
  };
  const test::Effects effects = {{"OpenClipboard 1", "before unguarded"},
                                 {"GlobalAlloc 1", "nothing guarded"},
                                 {"CreateStreamOnHGlobal 1", "nothing guarded"},
                                 {"GdipCreateBitmapFromStream 1", "nothing guarded"},
                                 {"Read", "nothing guarded"},
                                 {"Seek", "nothing guarded"},
                                 // Without its size, the picture has no pixels.
                                 {"GdipGetImageWidth 1", "40 guarded"},
                                 {"GdipGetImageHeight 1", "40 guarded"},
                                 {"GdipBitmapLockBits 1", "nothing guarded"},
                                 {"GlobalAlloc 2", "nothing guarded"},
                                 {"SetClipboardData 1", "nothing guarded"}};
  EXPECT_GT(expect_effects(
                prepare, [&] { apply_png(file); }, image, "48 guarded", effects),
            12);
}

}  // namespace
}  // namespace vlk::agent
