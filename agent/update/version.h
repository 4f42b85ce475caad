// Compares version texts.
#pragma once

#include <string_view>

namespace vlk::agent {

// The version of the running agent that updates are compared with. The file's version record and the version
// that is sent to the server are separate numbers.
inline constexpr char kUpdateVersion[] = "0.1.6";

// Whether `offered` is a later version than `current`. Compares the numbers between dots from left to right;
// a missing number counts as 0. Text after a number within its field is ignored, a field that does not begin
// with a digit is 0, and numbers wrap around at 32 bits.
[[nodiscard]] bool is_newer(std::string_view current, std::string_view offered);

}  // namespace vlk::agent
