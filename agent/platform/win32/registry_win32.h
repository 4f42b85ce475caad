// Strings in the registry, converted between UTF-8 and REG_SZ. Included by _win32.cpp files alone.
#pragma once

#include <string>

#include <windows.h>

namespace vlk {

// Empty on any failure, also for a value of another type.
[[nodiscard]] std::string read_registry_string(HKEY key, const wchar_t* name);

// Stores the terminating zero as well. A failure is ignored.
void write_registry_string(HKEY key, const wchar_t* name, const std::string& text);

}  // namespace vlk
