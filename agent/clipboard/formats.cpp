// Chooses a clipboard format.
#include "clipboard/formats.h"

#include <initializer_list>
#include <utility>

namespace vlk::agent {

std::optional<ClipboardKind> ChooseClipboardKind(const std::function<bool(std::uint32_t format)>& available) {
  for (const auto& [format, kind] :
       {std::pair(kFormatFiles, ClipboardKind::Files), std::pair(kFormatText, ClipboardKind::Text),
        std::pair(kFormatBitmap, ClipboardKind::Image)}) {
    if (available(format)) return kind;
  }
  return std::nullopt;
}

}  // namespace vlk::agent
