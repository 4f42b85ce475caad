// The clipboard formats that are sent, and the choice among them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "clipboard/payload.h"

namespace vlk::agent {

// Windows' numbers of the standard formats.
inline constexpr std::uint32_t kFormatBitmap = 8;  // CF_DIB: header, colour table and pixels in one block
inline constexpr std::uint32_t kFormatText = 13;   // CF_UNICODETEXT
inline constexpr std::uint32_t kFormatFiles = 15;  // CF_HDROP

// Chooses the format to send if the clipboard offers several: files first, then text, then an image. A format
// is chosen even if reading it then gives nothing. No value if none of the three formats is available.
[[nodiscard]] std::optional<ClipboardKind> ChooseClipboardKind(
    const std::function<bool(std::uint32_t format)>& available);

}  // namespace vlk::agent
