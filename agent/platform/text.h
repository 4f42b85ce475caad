// Text at the system's edge: UTF-8 everywhere inside, UTF-16 only where Windows asks for it.
#pragma once

#include <string>
#include <string_view>

namespace vlk {

// Empty in, empty out. Malformed input is replaced by the system's rule, never refused, and characters with
// the value 0 survive. Callable from any thread.
std::wstring Utf8ToWide(std::string_view text);
std::string WideToUtf8(std::wstring_view text);

}  // namespace vlk
