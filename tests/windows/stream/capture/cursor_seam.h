// Replaced pointer and drawing calls: a scripted pointer position, failures on demand, and a record of the
// arguments.
#pragma once

#include <windows.h>

namespace vlk::test {

struct CursorScript {
  bool scripted = false;  // if false, GetCursorInfo reaches the system
  BOOL info_result = TRUE;
  CURSORINFO info = {};
  BOOL icon_result = TRUE;
  bool fail_surface = false;
  int info_calls = 0, icon_calls = 0, surfaces = 0, draws = 0, memory_dcs = 0;
  DWORD info_size = 0;
  // The arguments of the last DrawIconEx.
  int x = 0, y = 0, width = -1, height = -1;
  UINT step = 99, flags = 0;
  HBRUSH brush = nullptr;
};
extern CursorScript cursor_script;

}  // namespace vlk::test
