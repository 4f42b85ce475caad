// Checks an HTTP response.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vlk::agent {

// Where the body begins in a complete response with status 200; no value for anything else. Only the first 12
// bytes and the first blank line are checked: a length, chunks and redirects are not supported.
[[nodiscard]] std::optional<std::size_t> find_body(std::string_view response);

}  // namespace vlk::agent
