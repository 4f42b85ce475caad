// The clipboard formats that are shared, and the choice among them.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "clipboard/payload.h"

namespace vlk::agent {

// Windows' numbers of the standard formats.
inline constexpr std::uint32_t kFormatBitmap = 8;  // CF_DIB: header, colours and pixels in one block
inline constexpr std::uint32_t kFormatText = 13;   // CF_UNICODETEXT
inline constexpr std::uint32_t kFormatFiles = 15;  // CF_HDROP

// What to send of a clipboard that holds several formats: files before text before an image. The choice
// stands even if it then yields nothing. Nothing when none of the three is there.
std::optional<ClipboardKind> ChooseClipboardKind(const std::function<bool(std::uint32_t format)>& available);

}  // namespace vlk::agent
