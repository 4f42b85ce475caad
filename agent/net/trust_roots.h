// The operating system's trusted root certificates.
#pragma once

#include <cstddef>
#include <functional>

namespace vlk::agent {

// Calls `visit` with the DER bytes of each root, in the system's order; the bytes are valid only during the
// call. If the store cannot be opened, `visit` is not called.
void for_each_system_root(const std::function<void(const unsigned char* der, std::size_t size)>& visit);

}  // namespace vlk::agent
