// A small HTTP client: one blocking GET over TLS that brings the whole body into memory. It shares nothing
// with the server link, least of all its trust: any certificate is accepted.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

// Connects, asks for `path` as it stands and reads until the server closes. There is no time-out and no limit
// of the size. True with `body` replaced if the server said 200, false with `body` untouched otherwise.
// Callable from any thread; blocks it.
bool https_get(const std::string& host, std::uint32_t port, const std::string& path, std::string& body);

}  // namespace vlk::agent
