// Checks an HTTP response.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace vlk::agent {

// Finds the position at which the body of a complete response with status 200 begins; no value for any other
// text. Only the first 12 bytes and the first blank line are checked: content lengths, chunks and redirects
// are not supported.
[[nodiscard]] std::optional<std::size_t> find_body(std::string_view response);

}  // namespace vlk::agent
