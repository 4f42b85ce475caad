// Draws QR codes, made by libqrencode, as SVG.
#include "relay/people/qr.h"

#include <qrencode.h>

#include <memory>
#include <stdexcept>

namespace vlk::relay {
namespace {

constexpr int kMargin = 4;  // modules of white on each side, as the standard requires

}  // namespace

std::string qr_svg(const std::string& text) {
  const std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
      QRcode_encodeString8bit(text.c_str(), 0, QR_ECLEVEL_M), &QRcode_free);
  if (!code) throw std::runtime_error("A QR code cannot hold this text.");
  const int width = code->width;
  const std::string side = std::to_string(width + 2 * kMargin);
  std::string path;
  for (int y = 0; y < width; ++y) {
    for (int x = 0; x < width; ++x) {
      // The lowest bit of a module's byte says whether the module is black.
      if (!(code->data[y * width + x] & 1)) continue;
      path += 'M' + std::to_string(x + kMargin) + ' ' + std::to_string(y + kMargin) + "h1v1h-1z";
    }
  }
  return "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 " + side + ' ' + side +
         "\" shape-rendering=\"crispEdges\"><path fill=\"#fff\" d=\"M0 0h" + side + 'v' + side + "H0z\"/>" +
         "<path d=\"" + path + "\"/></svg>";
}

}  // namespace vlk::relay
