// QR codes as pictures: the size, the margin, and the corner squares by which readers find a code.
#include "relay/people/qr.h"

#include <stdexcept>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

bool black(const std::string& svg, int x, int y) {
  const std::string module = 'M' + std::to_string(x) + ' ' + std::to_string(y) + "h1v1h-1z";
  return svg.find(module) != std::string::npos;
}

TEST(QrTest, PictureHasAMarginAndTheCornerSquares) {
  const std::string svg = qr_svg("otpauth://totp/Vantelink:a?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ");
  const auto box = svg.find("viewBox=\"0 0 ");
  ASSERT_NE(box, std::string::npos);
  const int side = std::stoi(svg.substr(box + 13));
  EXPECT_EQ((side - 8 - 17) % 4, 0) << "a QR code has 17 + 4n modules a side";
  for (int i = 0; i < side; ++i) {
    for (int edge = 0; edge < 4; ++edge)
      EXPECT_FALSE(black(svg, i, edge) || black(svg, edge, i));
  }
  for (const auto& [left, top] : {std::pair{4, 4}, {side - 11, 4}, {4, side - 11}}) {
    for (int i = 0; i < 7; ++i)
      EXPECT_TRUE(black(svg, left + i, top) && black(svg, left, top + i));
    EXPECT_FALSE(black(svg, left + 1, top + 1));
    EXPECT_TRUE(black(svg, left + 3, top + 3));
  }
}

TEST(QrTest, TextThatIsTooLongIsRefused) {
  EXPECT_THROW((void)qr_svg(std::string(5000, 'a')), std::runtime_error);
}

}  // namespace
}  // namespace vlk::relay
