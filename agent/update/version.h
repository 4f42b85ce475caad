// Comparison of version texts.
#pragma once

#include <string_view>

namespace vlk::agent {

// The running agent's version as updates see it. The file's version record and the version that the server
// hears are two others, and are kept apart.
inline constexpr char kUpdateVersion[] = "0.1.6";

// Whether `offered` is a later version than `current`: numbers between dots, compared from the left, a
// missing one being 0. What follows a number within its field does not count, a field without a number in
// front is 0, and numbers are 32 bits wide and wrap.
bool is_newer(std::string_view current, std::string_view offered);

}  // namespace vlk::agent
