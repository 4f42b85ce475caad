// Files that travel inside clipboard messages, for the audit trail. Of texts and pictures nothing is kept.
#pragma once

#include <optional>
#include <string>

#include "relay/wire/envelope.h"

namespace vlk::relay {

// How many files a clipboard envelope names, and their names as far as they are there; nothing for an
// envelope of texts, pictures or anything else. At most about kLongestClipNote bytes, without control
// characters.
std::optional<std::string> clip_note(const Bytes& envelope);

inline constexpr std::size_t kLongestClipNote = 4096;  // bytes

}  // namespace vlk::relay
