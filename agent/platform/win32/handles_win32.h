// RAII owners for Win32 handles: acquired on construction, released on destruction. For Windows files only.
#pragma once

#include <windows.h>

#include <memory>
#include <type_traits>

namespace vlk {

template <auto Release>
struct HandleDeleter {
  template <typename Handle>
  void operator()(Handle handle) const {
    Release(handle);
  }
};

template <typename Handle, auto Release>
using UniqueHandle = std::unique_ptr<std::remove_pointer_t<Handle>, HandleDeleter<Release>>;

using UniqueKernelHandle = UniqueHandle<HANDLE, CloseHandle>;  // must not own INVALID_HANDLE_VALUE
using UniqueServiceHandle = UniqueHandle<SC_HANDLE, CloseServiceHandle>;
using UniqueRegistryKey = UniqueHandle<HKEY, RegCloseKey>;
using UniqueFind = UniqueHandle<HANDLE, FindClose>;  // must not own INVALID_HANDLE_VALUE
using UniqueLibrary = UniqueHandle<HMODULE, FreeLibrary>;
using UniqueGlobal = UniqueHandle<HGLOBAL, GlobalFree>;
using UniqueMemoryDc = UniqueHandle<HDC, DeleteDC>;
using UniqueBitmap = UniqueHandle<HBITMAP, DeleteObject>;

// Locks movable global memory, so that it has an address. get() is null on failure.
class [[nodiscard]] LockedGlobal {
 public:
  explicit LockedGlobal(HGLOBAL memory) : memory_(memory), bytes_(GlobalLock(memory)) {}
  ~LockedGlobal() {
    if (bytes_ != nullptr) GlobalUnlock(memory_);
  }
  LockedGlobal(const LockedGlobal&) = delete;
  LockedGlobal& operator=(const LockedGlobal&) = delete;
  void* get() const { return bytes_; }

 private:
  const HGLOBAL memory_;
  void* const bytes_;
};

// The device context of the whole screen.
class [[nodiscard]] ScreenDc {
 public:
  ScreenDc() : dc_(GetDC(nullptr)) {}
  ~ScreenDc() { ReleaseDC(nullptr, dc_); }
  ScreenDc(const ScreenDc&) = delete;
  ScreenDc& operator=(const ScreenDc&) = delete;
  HDC get() const { return dc_; }

 private:
  const HDC dc_;
};

// Selects an object into a device context, and selects the previous one again on destruction. Must be
// destroyed before the context and the object.
class [[nodiscard]] Selection {
 public:
  Selection(HDC dc, HGDIOBJ object) : dc_(dc), previous_(SelectObject(dc, object)) {}
  ~Selection() { SelectObject(dc_, previous_); }
  Selection(const Selection&) = delete;
  Selection& operator=(const Selection&) = delete;

 private:
  const HDC dc_;
  const HGDIOBJ previous_;
};

// The header of a packed, top-down 32-bit image. The bytes of a pixel are blue, green, red and a fourth byte.
[[nodiscard]] inline BITMAPINFO top_down_bitmap(LONG width, LONG height) {
  BITMAPINFO info = {};
  info.bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
  info.bmiHeader.biWidth = width;
  info.bmiHeader.biHeight = -height;
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  return info;
}

}  // namespace vlk
