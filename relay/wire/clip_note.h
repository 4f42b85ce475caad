// The names of files inside clipboard messages, for the audit trail. Texts and pictures leave nothing there.
#pragma once

#include <optional>
#include <string>

#include "relay/base/bytes.h"

namespace vlk::relay {

// The number of files in a clipboard envelope, followed by those names that the envelope still holds if it
// was cut short; nothing for texts, pictures and other envelopes. The result has no control characters and
// about kLongestClipNote bytes at most.
[[nodiscard]] std::optional<std::string> clip_note(const Bytes& envelope);

inline constexpr std::size_t kLongestClipNote = 4096;  // bytes

}  // namespace vlk::relay
