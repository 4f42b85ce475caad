// The replaced clipboard calls, which record themselves, fail on demand or call the real ones.
#include "tests/windows/clipboard/clipboard_seam.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include <gtest/gtest.h>

#include "clipboard/opened_win32.h"
#include "platform/win32/gdiplus_win32.h"
#include "support/waiting.h"
#include "tests/windows/support/counted_calls.h"
#include "tests/windows/support/seam.h"

namespace clip {

Script script;

void note(std::string line) {
  script.calls.push_back(std::move(line));
}

namespace {

using vlk::test::call_fails;
using vlk::test::real;

std::string hex(DWORD value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lX", value);
  return text;
}

// Does not use the agent's conversion, whose calls a test may count.
std::string last_part(const wchar_t* path) {
  static auto* const system = real<decltype(WideCharToMultiByte)>("kernel32.dll", "WideCharToMultiByte");
  const std::wstring_view whole = path;
  const std::wstring_view part = whole.substr(whole.find_last_of(L'\\') + 1);
  char text[MAX_PATH * 3] = {};
  const int size =
      system(CP_UTF8, 0, part.data(), static_cast<int>(part.size()), text, sizeof text, nullptr, nullptr);
  return {text, static_cast<std::size_t>(size)};
}

DWORD WINAPI tick_count() {
  note("tick");
  return script.tick;
}

BOOL WINAPI open_clipboard(HWND owner) {
  static auto* const system = real<decltype(open_clipboard)>("user32.dll", "OpenClipboard");
  note(owner == vlk::agent::ClipboardWindow ? "open" : "open by another");
  if (script.refuse_open || call_fails("OpenClipboard")) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  // Wine's clipboard manager has the clipboard open for a moment after each change, which no test is about.
  return vantelink_test::eventually([owner] { return system(owner) != FALSE; });
}

BOOL WINAPI empty_clipboard() {
  static auto* const system = real<decltype(empty_clipboard)>("user32.dll", "EmptyClipboard");
  note("empty");
  return call_fails("EmptyClipboard") ? FALSE : system();
}

BOOL WINAPI close_clipboard() {
  static auto* const system = real<decltype(close_clipboard)>("user32.dll", "CloseClipboard");
  note("close");
  return system();
}

HANDLE WINAPI set_data(UINT format, HANDLE memory) {
  static auto* const system = real<decltype(set_data)>("user32.dll", "SetClipboardData");
  note("set " + std::to_string(format));
  if (script.refuse_set || call_fails("SetClipboardData")) return nullptr;
  const HANDLE result = system(format, memory);
  if (result != nullptr) script.given.insert(memory);
  return result;
}

HANDLE WINAPI get_data(UINT format) {
  static auto* const system = real<decltype(get_data)>("user32.dll", "GetClipboardData");
  note("get " + std::to_string(format));
  return script.refuse_data || call_fails("GetClipboardData") ? nullptr : system(format);
}

BOOL WINAPI add_listener(HWND window) {
  static auto* const system = real<decltype(add_listener)>("user32.dll", "AddClipboardFormatListener");
  note(window == vlk::agent::ClipboardWindow ? "listen" : "listen elsewhere");
  return system(window);
}

HGLOBAL WINAPI global_alloc(UINT flags, SIZE_T size) {
  static auto* const system = real<decltype(global_alloc)>("kernel32.dll", "GlobalAlloc");
  if (size == script.refuse_memory || call_fails("GlobalAlloc")) return nullptr;
  const HGLOBAL memory = system(flags, size);
  script.memory[memory] = size;
  script.given.erase(memory);  // a new block may have the address of one that the system has freed
  if (flags != GMEM_MOVEABLE) script.memory_flags = flags;
  return memory;
}

LPVOID WINAPI global_lock(HGLOBAL memory) {
  static auto* const system = real<decltype(global_lock)>("kernel32.dll", "GlobalLock");
  // The system locks each block that has just been allocated, so the agent does not check that.
  const bool is_own = script.memory.contains(memory) && !script.given.contains(memory);
  return script.refuse_lock || (!is_own && call_fails("GlobalLock")) ? nullptr : system(memory);
}

HGLOBAL WINAPI global_free(HGLOBAL memory) {
  static auto* const system = real<decltype(global_free)>("kernel32.dll", "GlobalFree");
  EXPECT_EQ(script.given.count(memory), 0u) << "the system frees this block too";
  script.memory.erase(memory);
  return system(memory);
}

HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD attributes, HANDLE like) {
  static auto* const system = real<decltype(create_file)>("kernel32.dll", "CreateFileW");
  note("file " + last_part(path) + ' ' + hex(access) + ' ' + std::to_string(share) + ' ' +
       std::to_string(disposition) + ' ' + std::to_string(attributes) +
       (security != nullptr || like != nullptr ? " with more" : ""));
  if (call_fails("CreateFileW")) return INVALID_HANDLE_VALUE;
  return system(path, access, share, security, disposition, attributes, like);
}

BOOL WINAPI read_file(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  static auto* const system = real<decltype(read_file)>("kernel32.dll", "ReadFile");
  note("read " + std::to_string(size));
  if (script.refuse_read || call_fails("ReadFile")) return FALSE;
  return system(file, buffer, std::min(size, script.most_read), count, overlapped);
}

BOOL WINAPI write_file(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  static auto* const system = real<decltype(write_file)>("kernel32.dll", "WriteFile");
  note("write " + std::to_string(size));
  if (call_fails("WriteFile")) return FALSE;
  return system(file, bytes, size, count, overlapped);
}

BOOL WINAPI create_directory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  static auto* const system = real<decltype(create_directory)>("kernel32.dll", "CreateDirectoryW");
  note("folder" + std::string(security != nullptr ? " with more" : ""));
  return call_fails("CreateDirectoryW") ? FALSE : system(path, security);
}

// Replaces the stream's Read, Seek and Stat, entries 3, 5 and 12 of its method table, by functions that obey
// the script.
void take_methods_from(IStream* stream) {
  constexpr std::size_t kRead = 3, kSeek = 5, kStat = 12, kMethods = 14;
  using Read = HRESULT(WINAPI*)(IStream*, void*, ULONG, ULONG*);
  using Seek = HRESULT(WINAPI*)(IStream*, LARGE_INTEGER, DWORD, ULARGE_INTEGER*);
  using Stat = HRESULT(WINAPI*)(IStream*, STATSTG*, DWORD);
  static void* table[kMethods];
  static Read system_read;
  static Seek system_seek;
  static Stat system_stat;
  void**& methods = *reinterpret_cast<void***>(stream);
  if (methods == table) return;
  std::copy(methods, methods + kMethods, table);
  system_read = reinterpret_cast<Read>(table[kRead]);
  system_seek = reinterpret_cast<Seek>(table[kSeek]);
  system_stat = reinterpret_cast<Stat>(table[kStat]);
  const Read read = [](IStream* self, void* bytes, ULONG size, ULONG* count) {
    if (script.refuse_stream_read || call_fails("Read")) return E_FAIL;
    return system_read(self, bytes, std::min(size, script.most_streamed), count);
  };
  const Seek seek = [](IStream* self, LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* position) {
    return call_fails("Seek") ? E_FAIL : system_seek(self, move, origin, position);
  };
  const Stat stat = [](IStream* self, STATSTG* status, DWORD flags) {
    return script.refuse_size || call_fails("Stat") ? E_FAIL : system_stat(self, status, flags);
  };
  table[kRead] = reinterpret_cast<void*>(read);
  table[kSeek] = reinterpret_cast<void*>(seek);
  table[kStat] = reinterpret_cast<void*>(stat);
  methods = table;
}

HRESULT WINAPI create_stream(HGLOBAL memory, BOOL delete_on_release, IStream** stream) {
  static auto* const system = real<decltype(create_stream)>("ole32.dll", "CreateStreamOnHGlobal");
  note(delete_on_release ? "stream" : "stream that keeps its memory");
  if (script.refuse_stream || call_fails("CreateStreamOnHGlobal")) return E_OUTOFMEMORY;
  const HRESULT result = system(memory, delete_on_release, stream);
  take_methods_from(*stream);
  if (memory != nullptr) script.given.insert(memory);
  return result;
}

}  // namespace
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
void* __imp_GlobalLock = reinterpret_cast<void*>(clip::global_lock);
void* __imp_GlobalFree = reinterpret_cast<void*>(clip::global_free);
void* __imp_CreateFileW = reinterpret_cast<void*>(clip::create_file);
void* __imp_ReadFile = reinterpret_cast<void*>(clip::read_file);
void* __imp_WriteFile = reinterpret_cast<void*>(clip::write_file);
void* __imp_CreateDirectoryW = reinterpret_cast<void*>(clip::create_directory);
void* __imp_CreateStreamOnHGlobal = reinterpret_cast<void*>(clip::create_stream);
}

namespace Gdiplus::DllExports {

using vlk::test::call_fails;

extern "C" GpStatus WINGDIPAPI GdipCreateBitmapFromGdiDib(const BITMAPINFO* info, VOID* pixels,
                                                          GpBitmap** bitmap) {
  static auto* const system = vlk::test::real<GpStatus WINGDIPAPI(const BITMAPINFO*, VOID*, GpBitmap**)>(
      "gdiplus.dll", "GdipCreateBitmapFromGdiDib");
  clip::script.pixel_offset =
      static_cast<const std::uint8_t*>(pixels) - reinterpret_cast<const std::uint8_t*>(info);
  if (call_fails("GdipCreateBitmapFromGdiDib")) return OutOfMemory;
  return system(info, pixels, bitmap);
}

extern "C" GpStatus WINGDIPAPI GdipBitmapLockBits(GpBitmap* bitmap, const Rect* part, UINT mode,
                                                  PixelFormat format, BitmapData* data) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(GpBitmap*, const Rect*, UINT, PixelFormat, BitmapData*)>(
          "gdiplus.dll", "GdipBitmapLockBits");
  if (clip::script.refuse_pixels || call_fails("GdipBitmapLockBits")) return OutOfMemory;
  return system(bitmap, part, mode, format, data);
}

extern "C" GpStatus WINGDIPAPI GdipSaveImageToStream(GpImage* image, IStream* stream, const CLSID* encoder,
                                                     const EncoderParameters* parameters) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(GpImage*, IStream*, const CLSID*, const EncoderParameters*)>(
          "gdiplus.dll", "GdipSaveImageToStream");
  if (clip::script.refuse_save || call_fails("GdipSaveImageToStream")) return GenericError;
  return system(image, stream, encoder, parameters);
}

extern "C" GpStatus WINGDIPAPI GdipGetImageEncodersSize(UINT* count, UINT* size) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(UINT*, UINT*)>("gdiplus.dll", "GdipGetImageEncodersSize");
  if (call_fails("GdipGetImageEncodersSize")) return OutOfMemory;
  if (!clip::script.no_encoders) return system(count, size);
  *count = *size = 0;
  return Ok;
}

}  // namespace Gdiplus::DllExports
