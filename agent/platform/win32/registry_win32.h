// Strings in the registry, converted between UTF-8 and REG_SZ. For Windows files only.
#pragma once

#include <windows.h>

#include <string>

namespace vlk {

// Reads a string. Empty on any failure, which includes a value of another type.
[[nodiscard]] std::string read_registry_string(HKEY key, const wchar_t* name);

// Writes a string with its terminating zero. A failure is ignored.
void write_registry_string(HKEY key, const wchar_t* name, const std::string& text);

}  // namespace vlk
