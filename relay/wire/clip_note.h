// Notes for the audit trail about clipboard messages: kind and size, and the names of files; never the
// content of texts and pictures.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "relay/base/bytes.h"

namespace vlk::relay {

struct ClipNote {
  const char* kind = "";  // "text", "picture", "files" or "other"
  std::size_t bytes = 0;  // of the payload
  std::size_t files = 0;
  std::vector<std::string> names;  // without control characters
};

// If the payload is truncated, only complete files are counted. Returns nothing for an envelope without a
// payload. The names have kLongestClipNote bytes at most together; further names are left out.
[[nodiscard]] std::optional<ClipNote> clip_note(const Bytes& envelope);

inline constexpr std::size_t kLongestClipNote = 4096;  // bytes

}  // namespace vlk::relay
