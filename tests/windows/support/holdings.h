// Counts of the GDI objects and kernel handles that this process holds, for tests that look for leaks.
#pragma once

#include <windows.h>

#include <functional>

namespace vlk::test {

DWORD gdi_objects();
DWORD kernel_handles();

struct Holdings {
  DWORD gdi = 0, handles = 0;
  bool operator==(const Holdings&) const = default;
};

Holdings holdings();

// Returns what `rounds` calls of `run` leave open. Three earlier calls, not counted, load what stays loaded.
Holdings left_open_by(const std::function<void()>& run, int rounds = 200);

}  // namespace vlk::test
