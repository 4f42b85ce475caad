// The clipboard's system calls as a test program sees and steers them: written down in their order, with a
// clock that stands still and failures on demand, and passed on to the real clipboard. Included by one file
// of a program.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "clipboard/apply_win32.h"
#include "clipboard/echo_guard.h"
#include "clipboard/opened_win32.h"
#include "clipboard/payload.h"
#include "clipboard/watch.h"
#include "clipboard/watch_win32.h"
#include "platform/text.h"
#include "platform/win32/gdiplus_win32.h"
#include "platform/win32/paths_win32.h"
#include "support/bytes/clip_bytes.h"
#include "support/bytes/file_bytes.h"
#include "tests/windows/support/seam.h"

namespace clip {

using Lines = std::vector<std::string>;

struct Script {
  DWORD tick = 100'000;
  bool refuse_open = false, refuse_set = false, refuse_data = false;
  std::size_t refuse_memory = ~std::size_t{0};                           // a request of this many bytes fails
  DWORD most_read = ~DWORD{0};                                           // bytes that a read gives
  bool refuse_read = false, refuse_stream = false, refuse_size = false;  // size: of a stream
  bool refuse_pixels = false, no_encoders = false;                       // of the image library

  Lines calls;
  std::map<HGLOBAL, std::size_t> memory;  // blocks that were taken and not freed, and their sizes
  UINT memory_flags = GMEM_MOVEABLE;      // of all blocks
  std::ptrdiff_t pixel_offset = -1;       // of the last bitmap that was handed to the image library
};
inline Script script;

inline std::string hex(DWORD value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lX", value);
  return text;
}

inline void note(std::string line) {
  script.calls.push_back(std::move(line));
}

inline std::string last_part(const wchar_t* path) {
  const std::wstring_view whole = path;
  return vlk::WideToUtf8(whole.substr(whole.find_last_of(L'\\') + 1));
}

inline DWORD WINAPI tick_count() {
  note("tick");
  return script.tick;
}

inline BOOL WINAPI open_clipboard(HWND owner) {
  static auto* const system = vlk::test::real<decltype(open_clipboard)>("user32.dll", "OpenClipboard");
  note(owner == vlk::agent::ClipboardWindow ? "open" : "open by another");
  if (!script.refuse_open) return system(owner);
  SetLastError(ERROR_ACCESS_DENIED);
  return FALSE;
}

inline BOOL WINAPI empty_clipboard() {
  static auto* const system = vlk::test::real<decltype(empty_clipboard)>("user32.dll", "EmptyClipboard");
  note("empty");
  return system();
}

inline BOOL WINAPI close_clipboard() {
  static auto* const system = vlk::test::real<decltype(close_clipboard)>("user32.dll", "CloseClipboard");
  note("close");
  return system();
}

inline HANDLE WINAPI set_data(UINT format, HANDLE memory) {
  static auto* const system = vlk::test::real<decltype(set_data)>("user32.dll", "SetClipboardData");
  note("set " + std::to_string(format));
  return script.refuse_set ? nullptr : system(format, memory);
}

inline HANDLE WINAPI get_data(UINT format) {
  static auto* const system = vlk::test::real<decltype(get_data)>("user32.dll", "GetClipboardData");
  note("get " + std::to_string(format));
  return script.refuse_data ? nullptr : system(format);
}

inline BOOL WINAPI add_listener(HWND window) {
  static auto* const system =
      vlk::test::real<decltype(add_listener)>("user32.dll", "AddClipboardFormatListener");
  note(window == vlk::agent::ClipboardWindow ? "listen" : "listen elsewhere");
  return system(window);
}

inline HGLOBAL WINAPI global_alloc(UINT flags, SIZE_T size) {
  static auto* const system = vlk::test::real<decltype(global_alloc)>("kernel32.dll", "GlobalAlloc");
  if (size == script.refuse_memory) return nullptr;
  const HGLOBAL memory = system(flags, size);
  script.memory[memory] = size;
  if (flags != GMEM_MOVEABLE) script.memory_flags = flags;
  return memory;
}

inline HGLOBAL WINAPI global_free(HGLOBAL memory) {
  static auto* const system = vlk::test::real<decltype(global_free)>("kernel32.dll", "GlobalFree");
  script.memory.erase(memory);
  return system(memory);
}

inline HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                                 DWORD disposition, DWORD attributes, HANDLE like) {
  static auto* const system = vlk::test::real<decltype(create_file)>("kernel32.dll", "CreateFileW");
  note("file " + last_part(path) + ' ' + hex(access) + ' ' + std::to_string(share) + ' ' +
       std::to_string(disposition) + ' ' + std::to_string(attributes) +
       (security != nullptr || like != nullptr ? " with more" : ""));
  return system(path, access, share, security, disposition, attributes, like);
}

inline BOOL WINAPI read_file(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  static auto* const system = vlk::test::real<decltype(read_file)>("kernel32.dll", "ReadFile");
  note("read " + std::to_string(size));
  if (script.refuse_read) return FALSE;
  return system(file, buffer, std::min(size, script.most_read), count, overlapped);
}

inline BOOL WINAPI write_file(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD count,
                              LPOVERLAPPED overlapped) {
  static auto* const system = vlk::test::real<decltype(write_file)>("kernel32.dll", "WriteFile");
  note("write " + std::to_string(size));
  return system(file, bytes, size, count, overlapped);
}

inline BOOL WINAPI create_directory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  static auto* const system = vlk::test::real<decltype(create_directory)>("kernel32.dll", "CreateDirectoryW");
  note("folder" + std::string(security != nullptr ? " with more" : ""));
  return system(path, security);
}

// Puts another function in the place of the stream's Stat.
inline void take_size_from(IStream* stream) {
  constexpr std::size_t kStat = 12, kMethods = 14;
  static void* table[kMethods];
  void**& methods = *reinterpret_cast<void***>(stream);
  std::copy(methods, methods + kMethods, table);
  HRESULT(WINAPI* const stat)(IStream*, STATSTG*, DWORD) = [](IStream*, STATSTG*, DWORD) { return E_FAIL; };
  table[kStat] = reinterpret_cast<void*>(stat);
  methods = table;
}

inline HRESULT WINAPI create_stream(HGLOBAL memory, BOOL delete_on_release, IStream** stream) {
  static auto* const system = vlk::test::real<decltype(create_stream)>("ole32.dll", "CreateStreamOnHGlobal");
  note(delete_on_release ? "stream" : "stream that keeps its memory");
  if (script.refuse_stream) return E_OUTOFMEMORY;
  const HRESULT result = system(memory, delete_on_release, stream);
  if (script.refuse_size) take_size_from(*stream);
  return result;
}

}  // namespace clip

extern "C" {
void* __imp_GetTickCount = reinterpret_cast<void*>(clip::tick_count);
void* __imp_OpenClipboard = reinterpret_cast<void*>(clip::open_clipboard);
void* __imp_EmptyClipboard = reinterpret_cast<void*>(clip::empty_clipboard);
void* __imp_CloseClipboard = reinterpret_cast<void*>(clip::close_clipboard);
void* __imp_SetClipboardData = reinterpret_cast<void*>(clip::set_data);
void* __imp_GetClipboardData = reinterpret_cast<void*>(clip::get_data);
void* __imp_AddClipboardFormatListener = reinterpret_cast<void*>(clip::add_listener);
void* __imp_GlobalAlloc = reinterpret_cast<void*>(clip::global_alloc);
void* __imp_GlobalFree = reinterpret_cast<void*>(clip::global_free);
void* __imp_CreateFileW = reinterpret_cast<void*>(clip::create_file);
void* __imp_ReadFile = reinterpret_cast<void*>(clip::read_file);
void* __imp_WriteFile = reinterpret_cast<void*>(clip::write_file);
void* __imp_CreateDirectoryW = reinterpret_cast<void*>(clip::create_directory);
void* __imp_CreateStreamOnHGlobal = reinterpret_cast<void*>(clip::create_stream);
}

namespace Gdiplus::DllExports {

extern "C" GpStatus WINGDIPAPI GdipCreateBitmapFromGdiDib(const BITMAPINFO* info, VOID* pixels,
                                                          GpBitmap** bitmap) {
  static auto* const system = vlk::test::real<GpStatus WINGDIPAPI(const BITMAPINFO*, VOID*, GpBitmap**)>(
      "gdiplus.dll", "GdipCreateBitmapFromGdiDib");
  clip::script.pixel_offset =
      static_cast<const std::uint8_t*>(pixels) - reinterpret_cast<const std::uint8_t*>(info);
  return system(info, pixels, bitmap);
}

extern "C" GpStatus WINGDIPAPI GdipBitmapLockBits(GpBitmap* bitmap, const Rect* part, UINT mode,
                                                  PixelFormat format, BitmapData* data) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(GpBitmap*, const Rect*, UINT, PixelFormat, BitmapData*)>(
          "gdiplus.dll", "GdipBitmapLockBits");
  return clip::script.refuse_pixels ? OutOfMemory : system(bitmap, part, mode, format, data);
}

extern "C" GpStatus WINGDIPAPI GdipGetImageEncodersSize(UINT* count, UINT* size) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(UINT*, UINT*)>("gdiplus.dll", "GdipGetImageEncodersSize");
  if (!clip::script.no_encoders) return system(count, size);
  *count = *size = 0;
  return Ok;
}

}  // namespace Gdiplus::DllExports

namespace vlk::agent {

// A window, the started watch, and a clipboard that is empty before each test. What the sink was given is in
// sent_.
class ClipboardTest : public testing::Test {
 protected:
  using Bytes = std::vector<std::uint8_t>;

  static void SetUpTestSuite() {
    const Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&token_, &input, nullptr);
    window_ = CreateWindowExW(0, L"Static", L"", WS_POPUP, 0, 0, 1, 1, nullptr, nullptr, nullptr, nullptr);
    StartClipboardWatch(window_, sink());
  }
  static void TearDownTestSuite() {
    DestroyWindow(window_);
    Gdiplus::GdiplusShutdown(token_);
  }
  void SetUp() override {
    sent_.clear();
    ClipboardEchoGuardUntil = 0;
    SetClipboardSessionActive(true);
    on_clipboard([] { EmptyClipboard(); });
    remove_scratch();
    clip::script = {};
  }

  static std::function<void(const unsigned char*, std::size_t)> sink() {
    return [](const unsigned char* data, std::size_t size) {
      clip::note("sink");
      sent_.emplace_back(data, data + size);
    };
  }

  // Calls the function while the clipboard is open. Leaves no trace in the script.
  static void on_clipboard(const std::function<void()>& work) {
    clip::Script before;
    std::swap(before, clip::script);
    EXPECT_TRUE(OpenClipboard(ClipboardWindow));
    work();
    CloseClipboard();
    std::swap(before, clip::script);
  }
  // Puts a block of memory there; only while it is open.
  static void put(UINT format, const void* bytes, std::size_t size) {
    const HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, size);
    std::memcpy(LockedGlobal(memory).get(), bytes, size);
    SetClipboardData(format, memory);
  }
  static void put_text(std::wstring_view text) {
    put(CF_UNICODETEXT, std::wstring(text).c_str(), (text.size() + 1) * sizeof(wchar_t));
  }
  static void put_files(const std::vector<std::wstring>& paths) {
    const std::string block = drop_block(paths);
    put(CF_HDROP, block.data(), block.size());
  }
  static std::string wide_bytes(std::wstring_view text) {
    return {reinterpret_cast<const char*>(text.data()), text.size() * sizeof(wchar_t)};
  }
  // The whole block of CF_HDROP.
  static std::string drop_block(const std::vector<std::wstring>& paths) {
    std::wstring list;
    for (const std::wstring& path : paths)
      list += path + L'\0';
    return vantelink_test::kDropHeader + wide_bytes(list + L'\0');
  }

  // What the clipboard holds in that format; empty when it does not.
  static std::string held(UINT format) {
    std::string bytes;
    on_clipboard([&] {
      if (!IsClipboardFormatAvailable(format)) return;
      const HANDLE memory = GetClipboardData(format);
      bytes.assign(static_cast<const char*>(LockedGlobal(memory).get()), GlobalSize(memory));
    });
    return bytes;
  }
  static bool holds_nothing() { return CountClipboardFormats() == 0; }

  static std::wstring scratch() { return temporary_folder() + L"VlkClip\\"; }
  // With all files of whatever name: "C:" would lead the standard library astray.
  static void remove_scratch() {
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
  static void write(const std::wstring& path, const std::string& bytes) {
    std::ofstream(std::filesystem::path(path), std::ios::binary) << bytes;
  }
  static std::string read(const std::wstring& path) { return vantelink_test::file_bytes(path); }
  static Bytes payload(ClipboardKind kind, std::string_view content) { return PackClip(kind, content); }

  inline static ULONG_PTR token_ = 0;
  inline static HWND window_ = nullptr;
  inline static std::vector<Bytes> sent_;
};

}  // namespace vlk::agent
