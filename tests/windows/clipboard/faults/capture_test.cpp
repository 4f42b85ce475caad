// Clipboard content that is sent, with each call of the system failing in turn: what is sent then, and that
// no block of memory is lost.
#include <windows.h>
#include <shellapi.h>

#include <algorithm>
#include <string>

#include "platform/win32/gdiplus_win32.h"
#include "tests/windows/clipboard/capture_fixture.h"
#include "tests/windows/support/counted_calls.h"

using Gdiplus::DllExports::GdipGetImageEncoders;

VLK_COUNTED("kernel32.dll", GetFileAttributesW, INVALID_FILE_ATTRIBUTES, ERROR_ACCESS_DENIED)
VLK_COUNTED("kernel32.dll", GetFileSizeEx, FALSE, ERROR_INVALID_HANDLE)
VLK_COUNTED("kernel32.dll", WideCharToMultiByte, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("user32.dll", IsClipboardFormatAvailable, FALSE, 0)
VLK_COUNTED("shell32.dll", DragQueryFileW, 0, 0)
VLK_COUNTED_PLAIN("gdiplus.dll", GdipGetImageEncoders, Gdiplus::OutOfMemory, 0)

namespace vlk::agent {
namespace {

class CaptureFaults : public CaptureTest {
 protected:
  // Fails each call while the content that `put` has put on the clipboard is sent.
  static int expect_effects(const std::function<void()>& put, const std::string& usual,
                            const test::Effects& effects) {
    std::string sent;
    const auto prepare = [&] {
      on_clipboard([&] {
        EmptyClipboard();
        put();
      });
      clip::script = {};
    };
    const auto result = [&] {
      std::replace(sent.begin(), sent.end(), '\0', '.');
      return sent;
    };
    return test::expect_effects({
        .prepare = prepare,
        .work = [&] { sent = update(); },
        .result = result,
        .usual = usual,
        .effects = effects,
        .check = [](const std::string&) { EXPECT_TRUE(clip::script.memory.empty()); },
    });
  }
};

TEST_F(CaptureFaults, TextThatCannotBeReadIsNotSent) {
  const test::Effects effects = {
      {"IsClipboardFormatAvailable 2", ""}, {"OpenClipboard 1", ""},
      {"GetClipboardData 1", ""},           {"GlobalLock 1", ""},
      {"WideCharToMultiByte 1", "text "},   {"WideCharToMultiByte 2", "text ...."}};
  EXPECT_EQ(expect_effects([] { put_text(L"Esja"); }, "text Esja", effects), 7);
}

TEST_F(CaptureFaults, FileThatCannotBeOpenedIsLeftOut) {
  const std::wstring a = file_with(L"a.txt", "one"), b = file_with(L"b.txt", "four");
  const std::string zeros(a.size(), '.');  // the path of a file whose conversion fails
  const test::Effects effects = {{"IsClipboardFormatAvailable 1", ""},
                                 {"OpenClipboard 1", ""},
                                 {"GetClipboardData 1", ""},
                                 {"DragQueryFileW 1", ""},
                                 {"DragQueryFileW 2", "files 1 b.txt 4"},
                                 {"GetFileAttributesW 1", "files 1 b.txt 4"},
                                 {"CreateFileW 1", "files 1 b.txt 4"},
                                 {"GetFileSizeEx 1", "files 2 a.txt 0 b.txt 4"},
                                 {"ReadFile 1", "files 2 a.txt 0 b.txt 4"},
                                 // A file without a name is sent; the reading agent leaves it out.
                                 {"WideCharToMultiByte 1", "files 2 b.txt 4"},
                                 {"WideCharToMultiByte 2", "files 2 " + zeros + " 3 b.txt 4"},
                                 {"DragQueryFileW 3", "files 1 a.txt 3"},
                                 {"GetFileAttributesW 2", "files 1 a.txt 3"},
                                 {"CreateFileW 2", "files 1 a.txt 3"},
                                 {"GetFileSizeEx 2", "files 2 a.txt 3 b.txt 0"},
                                 {"ReadFile 2", "files 2 a.txt 3 b.txt 0"},
                                 {"WideCharToMultiByte 3", "files 2 a.txt 3"},
                                 {"WideCharToMultiByte 4", "files 2 a.txt 3 " + zeros + " 4"}};
  EXPECT_EQ(expect_effects([&] { put_files({a, b}); }, "files 2 a.txt 3 b.txt 4", effects), 18);
}

TEST_F(CaptureFaults, ImageThatCannotBeReadOrEncodedIsNotSent) {
  const test::Effects effects = {{"IsClipboardFormatAvailable 3", ""},
                                 {"OpenClipboard 1", ""},
                                 {"GetClipboardData 1", ""},
                                 {"GlobalLock 1", ""},
                                 {"GdipCreateBitmapFromGdiDib 1", ""},
                                 {"CreateStreamOnHGlobal 1", ""},
                                 {"GdipGetImageEncodersSize 1", ""},
                                 {"GdipGetImageEncoders 1", ""},
                                 {"GdipSaveImageToStream 1", ""},
                                 {"Stat", ""},
                                 {"Seek", ""},
                                 {"Read", ""}};
  EXPECT_GT(expect_effects([] { put_bitmap(two_pixels()); }, "image", effects), 11);
}

}  // namespace
}  // namespace vlk::agent
