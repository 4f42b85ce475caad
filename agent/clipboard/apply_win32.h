// Puts received content on the local clipboard. Runs on the UI thread, which it blocks while it decodes
// images and writes files. All failures are silent.
#pragma once

#include <cstdint>
#include <vector>

namespace vlk::agent {

// Replaces the clipboard's content with the content of one message. The earlier content is lost even if the
// new content is unusable.
void ApplyClipboard(const std::vector<std::uint8_t>& payload);

}  // namespace vlk::agent
