// Link-time seams: a test program replaces a system call by defining the call's import pointer (__imp_NAME),
// which the linker uses instead of the import library's.
#pragma once

#include <windows.h>

namespace vlk::test {

// The system's own function, for replacements that pass a call on.
template <typename Function>
Function* real(const char* library, const char* name) {
  return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(library), name)));
}

}  // namespace vlk::test
