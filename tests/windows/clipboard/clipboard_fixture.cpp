// Creates the window, starts the clipboard watch and empties the clipboard.
#include "tests/windows/clipboard/clipboard_fixture.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "clipboard/echo_guard.h"
#include "clipboard/opened_win32.h"
#include "clipboard/watch.h"
#include "clipboard/watch_win32.h"
#include "platform/win32/gdiplus_win32.h"
#include "platform/win32/handles_win32.h"
#include "platform/win32/paths_win32.h"
#include "support/bytes/clip_bytes.h"
#include "support/bytes/file_bytes.h"
#include "support/waiting.h"

namespace vlk::agent {

void ClipboardTest::SetUpTestSuite() {
  const Gdiplus::GdiplusStartupInput input;
  Gdiplus::GdiplusStartup(&token_, &input, nullptr);
  window_ = CreateWindowExW(0, L"Static", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
  // While Wine starts, its clipboard manager opens the clipboard once and then owns it.
  ASSERT_TRUE(vantelink_test::eventually([] { return GetClipboardOwner() && !GetOpenClipboardWindow(); }))
      << "the desktop did not take possession of the clipboard";
  StartClipboardWatch(window_, sink());
}

void ClipboardTest::TearDownTestSuite() {
  DestroyWindow(window_);
  Gdiplus::GdiplusShutdown(token_);
}

void ClipboardTest::SetUp() {
  sent_.clear();
  ClipboardEchoGuardUntil = 0;
  SetClipboardSessionActive(true);
  on_clipboard([] { EmptyClipboard(); });
  remove_scratch();
  clip::script = {};
}

std::function<void(const unsigned char*, std::size_t)> ClipboardTest::sink() {
  return [](const unsigned char* data, std::size_t size) {
    clip::note("sink");
    sent_.emplace_back(data, data + size);
  };
}

void ClipboardTest::on_clipboard(const std::function<void()>& work) {
  clip::Script before;
  std::swap(before, clip::script);
  EXPECT_TRUE(OpenClipboard(ClipboardWindow));
  work();
  CloseClipboard();
  std::swap(before, clip::script);
}

void ClipboardTest::put(UINT format, const void* bytes, std::size_t size) {
  const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
  std::memcpy(LockedGlobal(memory).get(), bytes, size);
  SetClipboardData(format, memory);
}

void ClipboardTest::put_text(std::wstring_view text) {
  put(CF_UNICODETEXT, std::wstring(text).c_str(), (text.size() + 1) * sizeof(wchar_t));
}

void ClipboardTest::put_files(const std::vector<std::wstring>& paths) {
  const std::string block = drop_block(paths);
  put(CF_HDROP, block.data(), block.size());
}

std::string ClipboardTest::wide_bytes(std::wstring_view text) {
  return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
}

std::string ClipboardTest::drop_block(const std::vector<std::wstring>& paths) {
  std::wstring list;
  for (const std::wstring& path : paths)
    list += path + L'\0';
  return vantelink_test::kDropHeader + wide_bytes(list + L'\0');
}

std::string ClipboardTest::held(UINT format) {
  std::string bytes;
  on_clipboard([&] {
    if (!IsClipboardFormatAvailable(format)) return;
    const HANDLE memory = GetClipboardData(format);
    bytes.assign(static_cast<const char*>(LockedGlobal(memory).get()), GlobalSize(memory));
  });
  return bytes;
}

std::wstring ClipboardTest::scratch() {
  return temporary_folder() + L"VlkClip\\";
}

// Uses Windows calls, because the standard library treats a file name such as "C:" as a drive.
void ClipboardTest::remove_scratch() {
  WIN32_FIND_DATAW found;
  const HANDLE search = FindFirstFileW((scratch() + L'*').c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::wstring path = scratch() + found.cFileName;
    if (!DeleteFileW(path.c_str())) RemoveDirectoryW(path.c_str());
  } while (FindNextFileW(search, &found));
  FindClose(search);
  EXPECT_TRUE(RemoveDirectoryW(scratch().c_str()));
}

void ClipboardTest::write(const std::wstring& path, const std::string& bytes) {
  std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
}

std::string ClipboardTest::read(const std::wstring& path) {
  return vantelink_test::file_bytes(path);
}

}  // namespace vlk::agent
