// What counts as a good HTTP response.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vlk::agent {

// Where the body begins in a whole response of status 200; no value for anything else. Only the first 12
// bytes and the first blank line count: length, chunks and redirects are not known.
std::optional<std::size_t> find_body(std::string_view response);

}  // namespace vlk::agent
