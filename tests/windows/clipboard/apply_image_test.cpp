// Received PNG images on a real clipboard: the bitmap they become, and images that cannot be decoded.
#include <cstdint>
#include <utility>

#include "clipboard/echo_guard.h"
#include "support/bytes/png.h"
#include "tests/windows/clipboard/apply_fixture.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;

// Pixels computed by a formula, in the order red, green, blue, alpha.
std::string pixels(std::uint32_t width, std::uint32_t height) {
  std::string bytes;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      for (const std::uint32_t part : {x * 7 + y, x + y * 5, x * 3 + y * 11, x * 13 + y * 29})
        bytes += static_cast<char>(part);
    }
  }
  return bytes;
}

// The block of CF_DIB expected for these pixels: the header, then pixels in the order blue, green, red,
// alpha.
std::string bitmap(std::uint32_t width, std::uint32_t height, std::string bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += 4)
    std::swap(bytes[at], bytes[at + 2]);
  BITMAPINFOHEADER header = {};
  header.biSize = 40;
  header.biWidth = static_cast<LONG>(width);
  header.biHeight = -static_cast<LONG>(height);
  header.biPlanes = 1;
  header.biBitCount = 32;
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) + bytes;
}

TEST_F(ApplyTest, ImageBecomesATopDownBitmapWithItsAlpha) {
  for (const auto& [width, height] : {std::pair(3u, 2u), std::pair(1u, 1u), std::pair(65u, 33u)}) {
    script.calls.clear();
    apply_png(vantelink_test::make_png(width, height, pixels(width, height)));
    EXPECT_EQ(held(CF_DIB), bitmap(width, height, pixels(width, height))) << width;
    EXPECT_EQ(script.calls, Lines({"open", "empty", "stream", "set 8", "close", "tick"}));
    EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, UndecodableImagesLeaveTheClipboardEmpty) {
  const std::string good = vantelink_test::make_png(3, 2, pixels(3, 2));
  std::string broken_header = good;
  broken_header[18] = '\x7F';
  for (const std::string& file :
       {std::string(), std::string("\x89PNG"), std::string(1000, 'x'), good.substr(0, 20), broken_header}) {
    on_clipboard([] { put_text(L"before"); });
    ClipboardEchoGuardUntil = 0;
    apply_png(file);
    EXPECT_TRUE(holds_nothing());
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, EveryTruncationOfAnImageIsHarmless) {
  const std::string good = vantelink_test::make_png(3, 2, pixels(3, 2));
  for (std::size_t size = 0; size < good.size(); ++size) {
    apply_png(std::string_view(good).substr(0, size));
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, EveryFailureToSetAnImageFreesItsMemory) {
  const std::string file = vantelink_test::make_png(3, 2, pixels(3, 2));
  const std::size_t bitmap_size = bitmap(3, 2, pixels(3, 2)).size();
  script.refuse_stream = true;
  apply_png(file);
  EXPECT_TRUE(script.memory.empty()) << "the copy of the file is freed";
  EXPECT_TRUE(holds_nothing());
  script.refuse_stream = false;
  script.refuse_memory = file.size();
  apply_png(file);
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = bitmap_size;
  apply_png(file);
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = ~std::size_t{0};
  script.refuse_set = true;
  apply_png(file);
  for (const auto& [memory, size] : script.memory)
    EXPECT_NE(size, bitmap_size) << "the bitmap must be freed; the copy of the file is freed by its stream";
}

TEST_F(ApplyTest, ImageWhosePixelsCannotBeReadLeavesTheClipboardEmpty) {
  script.refuse_pixels = true;
  apply_png(vantelink_test::make_png(3, 2, pixels(3, 2)));
  EXPECT_EQ(script.calls, Lines({"open", "empty", "stream", "close", "tick"}));
  EXPECT_TRUE(holds_nothing());
  EXPECT_TRUE(guard_is_set());
}

}  // namespace
}  // namespace vlk::agent
