// The replaced clipboard calls, which record themselves, fail on demand or call the real ones.
#include "tests/windows/clipboard/clipboard_seam.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "clipboard/opened_win32.h"
#include "platform/text.h"
#include "platform/win32/gdiplus_win32.h"
#include "support/waiting.h"
#include "tests/windows/support/seam.h"

namespace clip {

Script script;

void note(std::string line) {
  script.calls.push_back(std::move(line));
}

namespace {

using vlk::test::real;

std::string hex(DWORD value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%lX", value);
  return text;
}

std::string last_part(const wchar_t* path) {
  const std::wstring_view whole = path;
  return vlk::WideToUtf8(whole.substr(whole.find_last_of(L'\\') + 1));
}

DWORD WINAPI tick_count() {
  note("tick");
  return script.tick;
}

BOOL WINAPI open_clipboard(HWND owner) {
  static auto* const system = real<decltype(open_clipboard)>("user32.dll", "OpenClipboard");
  note(owner == vlk::agent::ClipboardWindow ? "open" : "open by another");
  if (script.refuse_open) {
    SetLastError(ERROR_ACCESS_DENIED);
    return FALSE;
  }
  // Wine's clipboard manager has the clipboard open for a moment after each change, which no test is about.
  return vantelink_test::eventually([owner] { return system(owner) != FALSE; });
}

BOOL WINAPI empty_clipboard() {
  static auto* const system = real<decltype(empty_clipboard)>("user32.dll", "EmptyClipboard");
  note("empty");
  return system();
}

BOOL WINAPI close_clipboard() {
  static auto* const system = real<decltype(close_clipboard)>("user32.dll", "CloseClipboard");
  note("close");
  return system();
}

HANDLE WINAPI set_data(UINT format, HANDLE memory) {
  static auto* const system = real<decltype(set_data)>("user32.dll", "SetClipboardData");
  note("set " + std::to_string(format));
  return script.refuse_set ? nullptr : system(format, memory);
}

HANDLE WINAPI get_data(UINT format) {
  static auto* const system = real<decltype(get_data)>("user32.dll", "GetClipboardData");
  note("get " + std::to_string(format));
  return script.refuse_data ? nullptr : system(format);
}

BOOL WINAPI add_listener(HWND window) {
  static auto* const system = real<decltype(add_listener)>("user32.dll", "AddClipboardFormatListener");
  note(window == vlk::agent::ClipboardWindow ? "listen" : "listen elsewhere");
  return system(window);
}

HGLOBAL WINAPI global_alloc(UINT flags, SIZE_T size) {
  static auto* const system = real<decltype(global_alloc)>("kernel32.dll", "GlobalAlloc");
  if (size == script.refuse_memory) return nullptr;
  const HGLOBAL memory = system(flags, size);
  script.memory[memory] = size;
  if (flags != GMEM_MOVEABLE) script.memory_flags = flags;
  return memory;
}

LPVOID WINAPI global_lock(HGLOBAL memory) {
  static auto* const system = real<decltype(global_lock)>("kernel32.dll", "GlobalLock");
  return script.refuse_lock ? nullptr : system(memory);
}

HGLOBAL WINAPI global_free(HGLOBAL memory) {
  static auto* const system = real<decltype(global_free)>("kernel32.dll", "GlobalFree");
  script.memory.erase(memory);
  return system(memory);
}

HANDLE WINAPI create_file(LPCWSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security,
                          DWORD disposition, DWORD attributes, HANDLE like) {
  static auto* const system = real<decltype(create_file)>("kernel32.dll", "CreateFileW");
  note("file " + last_part(path) + ' ' + hex(access) + ' ' + std::to_string(share) + ' ' +
       std::to_string(disposition) + ' ' + std::to_string(attributes) +
       (security != nullptr || like != nullptr ? " with more" : ""));
  return system(path, access, share, security, disposition, attributes, like);
}

BOOL WINAPI read_file(HANDLE file, LPVOID buffer, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  static auto* const system = real<decltype(read_file)>("kernel32.dll", "ReadFile");
  note("read " + std::to_string(size));
  if (script.refuse_read) return FALSE;
  return system(file, buffer, std::min(size, script.most_read), count, overlapped);
}

BOOL WINAPI write_file(HANDLE file, LPCVOID bytes, DWORD size, LPDWORD count, LPOVERLAPPED overlapped) {
  static auto* const system = real<decltype(write_file)>("kernel32.dll", "WriteFile");
  note("write " + std::to_string(size));
  return system(file, bytes, size, count, overlapped);
}

BOOL WINAPI create_directory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  static auto* const system = real<decltype(create_directory)>("kernel32.dll", "CreateDirectoryW");
  note("folder" + std::string(security != nullptr ? " with more" : ""));
  return system(path, security);
}

// Replaces the stream's Read and Stat, entries 3 and 12 of its method table, by functions that obey the
// script.
void take_methods_from(IStream* stream) {
  constexpr std::size_t kRead = 3, kStat = 12, kMethods = 14;
  using Read = HRESULT(WINAPI*)(IStream*, void*, ULONG, ULONG*);
  using Stat = HRESULT(WINAPI*)(IStream*, STATSTG*, DWORD);
  static void* table[kMethods];
  static Read system_read;
  static Stat system_stat;
  void**& methods = *reinterpret_cast<void***>(stream);
  if (methods == table) return;
  std::copy(methods, methods + kMethods, table);
  system_read = reinterpret_cast<Read>(table[kRead]);
  system_stat = reinterpret_cast<Stat>(table[kStat]);
  const Read read = [](IStream* self, void* bytes, ULONG size, ULONG* count) {
    return script.refuse_stream_read ? E_FAIL
                                     : system_read(self, bytes, std::min(size, script.most_streamed), count);
  };
  const Stat stat = [](IStream* self, STATSTG* status, DWORD flags) {
    return script.refuse_size ? E_FAIL : system_stat(self, status, flags);
  };
  table[kRead] = reinterpret_cast<void*>(read);
  table[kStat] = reinterpret_cast<void*>(stat);
  methods = table;
}

HRESULT WINAPI create_stream(HGLOBAL memory, BOOL delete_on_release, IStream** stream) {
  static auto* const system = real<decltype(create_stream)>("ole32.dll", "CreateStreamOnHGlobal");
  note(delete_on_release ? "stream" : "stream that keeps its memory");
  if (script.refuse_stream) return E_OUTOFMEMORY;
  const HRESULT result = system(memory, delete_on_release, stream);
  take_methods_from(*stream);
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

extern "C" GpStatus WINGDIPAPI GdipSaveImageToStream(GpImage* image, IStream* stream, const CLSID* encoder,
                                                     const EncoderParameters* parameters) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(GpImage*, IStream*, const CLSID*, const EncoderParameters*)>(
          "gdiplus.dll", "GdipSaveImageToStream");
  return clip::script.refuse_save ? GenericError : system(image, stream, encoder, parameters);
}

extern "C" GpStatus WINGDIPAPI GdipGetImageEncodersSize(UINT* count, UINT* size) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(UINT*, UINT*)>("gdiplus.dll", "GdipGetImageEncodersSize");
  if (!clip::script.no_encoders) return system(count, size);
  *count = *size = 0;
  return Ok;
}

}  // namespace Gdiplus::DllExports
