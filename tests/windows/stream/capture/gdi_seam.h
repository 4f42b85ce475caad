// The GDI calls of a screen copy: their arguments are recorded, and each fails on demand.
#pragma once

#include <windows.h>

#include "tests/support/fail_nth.h"

namespace vlk::test {

struct GdiScript {
  vantelink_test::FailNth* failure = nullptr;  // chooses the call that fails
  const char* failing = "";                    // name of the call that always fails
  DWORD copy_operation = 0;                    // of the last BitBlt
  DWORD stretch_operation = 0;                 // of the last StretchBlt
  int stretch_mode = 0;                        // of the target of the last StretchBlt
  RECT source = {};                            // of the last BitBlt or StretchBlt: origin and size
};
extern GdiScript gdi_script;

}  // namespace vlk::test
