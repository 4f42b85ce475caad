// Notes for the audit trail about files in clipboard messages. There are no notes about texts and pictures.
#pragma once

#include <optional>
#include <string>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Returns the number of files in a clipboard envelope, followed by their names. If the payload is truncated,
// only complete files are counted. Returns nothing for texts, pictures and other envelopes. The result has no
// control characters and about kLongestClipNote bytes at most; names beyond that are left out.
[[nodiscard]] std::optional<std::string> clip_note(const Bytes& envelope);

inline constexpr std::size_t kLongestClipNote = 4096;  // bytes

}  // namespace vlk::relay
