// Received content on its way to the local clipboard. UI thread only, and on it for as long as the work
// takes: decoding images and writing files. All failures are silent.
#pragma once

#include <cstdint>
#include <vector>

namespace vlk::agent {

// Makes the content of one message the local clipboard's. What it held before is gone even when the content
// turns out to be of no use.
void ApplyClipboard(const std::vector<std::uint8_t>& payload);

}  // namespace vlk::agent
