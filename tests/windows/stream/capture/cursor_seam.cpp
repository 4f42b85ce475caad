// The replaced pointer and drawing calls.
#include "tests/windows/stream/capture/cursor_seam.h"

#include "tests/windows/support/seam.h"

namespace vlk::test {

CursorScript cursor_script;

namespace {

BOOL WINAPI get_cursor_info(PCURSORINFO info) {
  static auto* const system = real<decltype(get_cursor_info)>("user32.dll", "GetCursorInfo");
  ++cursor_script.info_calls;
  cursor_script.info_size = info->cbSize;
  if (!cursor_script.scripted) return system(info);
  const DWORD size = info->cbSize;
  *info = cursor_script.info;
  info->cbSize = size;
  return cursor_script.info_result;
}

BOOL WINAPI get_icon_info(HICON icon, PICONINFO info) {
  static auto* const system = real<decltype(get_icon_info)>("user32.dll", "GetIconInfo");
  ++cursor_script.icon_calls;
  return cursor_script.icon_result ? system(icon, info) : FALSE;
}

HBITMAP WINAPI create_dib_section(HDC dc, const BITMAPINFO* info, UINT usage, void** bits, HANDLE section,
                                  DWORD offset) {
  static auto* const system = real<decltype(create_dib_section)>("gdi32.dll", "CreateDIBSection");
  ++cursor_script.surfaces;
  if (!cursor_script.fail_surface) return system(dc, info, usage, bits, section, offset);
  *bits = nullptr;
  return nullptr;
}

HDC WINAPI create_compatible_dc(HDC dc) {
  static auto* const system = real<decltype(create_compatible_dc)>("gdi32.dll", "CreateCompatibleDC");
  ++cursor_script.memory_dcs;
  return system(dc);
}

BOOL WINAPI draw_icon(HDC dc, int x, int y, HICON icon, int width, int height, UINT step, HBRUSH brush,
                      UINT flags) {
  static auto* const system = real<decltype(draw_icon)>("user32.dll", "DrawIconEx");
  ++cursor_script.draws;
  cursor_script.x = x;
  cursor_script.y = y;
  cursor_script.width = width;
  cursor_script.height = height;
  cursor_script.step = step;
  cursor_script.brush = brush;
  cursor_script.flags = flags;
  return system(dc, x, y, icon, width, height, step, brush, flags);
}

}  // namespace
}  // namespace vlk::test

extern "C" {
void* __imp_GetCursorInfo = reinterpret_cast<void*>(vlk::test::get_cursor_info);
void* __imp_GetIconInfo = reinterpret_cast<void*>(vlk::test::get_icon_info);
void* __imp_CreateDIBSection = reinterpret_cast<void*>(vlk::test::create_dib_section);
void* __imp_CreateCompatibleDC = reinterpret_cast<void*>(vlk::test::create_compatible_dc);
void* __imp_DrawIconEx = reinterpret_cast<void*>(vlk::test::draw_icon);
}
