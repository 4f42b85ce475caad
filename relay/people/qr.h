// QR codes as SVG pictures.
#pragma once

#include <string>

namespace vlk::relay {

// A picture of a QR code that holds `text`, black on white with the margin that readers need. Throws
// std::runtime_error if the text does not fit into a QR code.
[[nodiscard]] std::string qr_svg(const std::string& text);

}  // namespace vlk::relay
