// Converts text between UTF-8, which the agent uses, and the wide strings of the Windows API.
#pragma once

#include <string>
#include <string_view>

namespace vlk {

// Both functions replace malformed input by the system's rules and keep characters with the value 0. Callable
// on any thread.
[[nodiscard]] std::wstring Utf8ToWide(std::string_view text);
[[nodiscard]] std::string WideToUtf8(std::wstring_view text);

}  // namespace vlk
