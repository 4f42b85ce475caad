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

// The format to send from a clipboard with several: files before text before an image. It is chosen even if
// reading it then gives nothing. No value if none of the three is available.
[[nodiscard]] std::optional<ClipboardKind> ChooseClipboardKind(
    const std::function<bool(std::uint32_t format)>& available);

}  // namespace vlk::agent
