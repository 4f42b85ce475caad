// The replaced GDI calls.
#include "tests/windows/stream/capture/gdi_seam.h"

#include <cstring>

#include "tests/windows/support/seam.h"

namespace vlk::test {

GdiScript gdi_script;

namespace {

bool fails(const char* name) {
  if (gdi_script.failure != nullptr && gdi_script.failure->fails()) return true;
  return std::strcmp(gdi_script.failing, name) == 0;
}

HDC WINAPI get_dc(HWND window) {
  static auto* const system = real<decltype(get_dc)>("user32.dll", "GetDC");
  return fails("GetDC") ? nullptr : system(window);
}

HDC WINAPI create_compatible_dc(HDC dc) {
  static auto* const system = real<decltype(create_compatible_dc)>("gdi32.dll", "CreateCompatibleDC");
  return fails("CreateCompatibleDC") ? nullptr : system(dc);
}

HBITMAP WINAPI create_compatible_bitmap(HDC dc, int width, int height) {
  static auto* const system = real<decltype(create_compatible_bitmap)>("gdi32.dll", "CreateCompatibleBitmap");
  return fails("CreateCompatibleBitmap") ? nullptr : system(dc, width, height);
}

HGDIOBJ WINAPI select_object(HDC dc, HGDIOBJ object) {
  static auto* const system = real<decltype(select_object)>("gdi32.dll", "SelectObject");
  return fails("SelectObject") ? nullptr : system(dc, object);
}

BOOL WINAPI bit_blt(HDC to, int x, int y, int width, int height, HDC from, int left, int top,
                    DWORD operation) {
  static auto* const system = real<decltype(bit_blt)>("gdi32.dll", "BitBlt");
  gdi_script.copy_operation = operation;
  gdi_script.source = {left, top, width, height};
  return fails("BitBlt") ? FALSE : system(to, x, y, width, height, from, left, top, operation);
}

BOOL WINAPI stretch_blt(HDC to, int x, int y, int width, int height, HDC from, int left, int top,
                        int from_width, int from_height, DWORD operation) {
  static auto* const system = real<decltype(stretch_blt)>("gdi32.dll", "StretchBlt");
  gdi_script.stretch_operation = operation;
  gdi_script.stretch_mode = GetStretchBltMode(to);
  gdi_script.source = {left, top, from_width, from_height};
  if (fails("StretchBlt")) return FALSE;
  return system(to, x, y, width, height, from, left, top, from_width, from_height, operation);
}

int WINAPI get_di_bits(HDC dc, HBITMAP bitmap, UINT start, UINT rows, void* bits, BITMAPINFO* info,
                       UINT usage) {
  static auto* const system = real<decltype(get_di_bits)>("gdi32.dll", "GetDIBits");
  return fails("GetDIBits") ? 0 : system(dc, bitmap, start, rows, bits, info, usage);
}

}  // namespace
}  // namespace vlk::test

extern "C" {
void* __imp_GetDC = reinterpret_cast<void*>(vlk::test::get_dc);
void* __imp_CreateCompatibleDC = reinterpret_cast<void*>(vlk::test::create_compatible_dc);
void* __imp_CreateCompatibleBitmap = reinterpret_cast<void*>(vlk::test::create_compatible_bitmap);
void* __imp_SelectObject = reinterpret_cast<void*>(vlk::test::select_object);
void* __imp_BitBlt = reinterpret_cast<void*>(vlk::test::bit_blt);
void* __imp_StretchBlt = reinterpret_cast<void*>(vlk::test::stretch_blt);
void* __imp_GetDIBits = reinterpret_cast<void*>(vlk::test::get_di_bits);
}
