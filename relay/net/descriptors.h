// The process's limit of file descriptors.
#pragma once

#include <cstddef>

namespace vlk::relay {

// Raises the limit so that this many connections fit, together with those that are being cleared away and the
// relay's files. Throws std::runtime_error with a sentence that names the number to set if the system does
// not allow that.
void raise_descriptor_limit(std::size_t connections);

}  // namespace vlk::relay
