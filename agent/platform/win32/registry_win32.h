// Strings in the registry: UTF-8 on our side, REG_SZ on the other. Included by _win32.cpp files alone.
#pragma once

#include <string>

#include <windows.h>

namespace vlk {

// Empty on any problem, a value of another type included.
std::string read_registry_string(HKEY key, const wchar_t* name);

// Stores the closing zero as well. A failure is silent.
void write_registry_string(HKEY key, const wchar_t* name, const std::string& text);

}  // namespace vlk
