// Text conversion. The agent uses UTF-8, and wide strings only for calls of the Windows API.
#pragma once

#include <string>
#include <string_view>

namespace vlk {

// Malformed input is replaced by the system's rule, and characters with the value 0 are kept. Callable on any
// thread.
[[nodiscard]] std::wstring Utf8ToWide(std::string_view text);
[[nodiscard]] std::string WideToUtf8(std::wstring_view text);

}  // namespace vlk
