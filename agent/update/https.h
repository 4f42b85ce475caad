// A small HTTP client: one blocking GET over TLS that reads the whole body into memory. It shares no state
// with the connection to the relay. Unlike that connection, it accepts any certificate.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

// Connects, requests the unchanged `path` and reads until the server closes the connection, without a
// time-out and without a size limit. True with `body` replaced if the status is 200, otherwise false with
// `body` unchanged. Callable on any thread; blocks it.
[[nodiscard]] bool https_get(const std::string& host, std::uint32_t port, const std::string& path,
                             std::string& body);

}  // namespace vlk::agent
