// Copied bitmaps that are sent as PNG images, compared pixel by pixel.
#include "clipboard/png_win32.h"
#include "platform/win32/gdiplus_win32.h"
#include "tests/windows/clipboard/capture_fixture.h"

namespace vlk::agent {
namespace {

using clip::script;

// Copies bitmaps and decodes the images that are sent for them.
class CaptureImageTest : public CaptureTest {
 protected:
  // The pixels of the sent image as 0xAARRGGBB, from the upper left; empty if nothing is sent.
  static std::vector<Gdiplus::ARGB> sent_pixels(const std::string& block) {
    namespace gdip = Gdiplus::DllExports;
    on_clipboard([&] {
      EmptyClipboard();
      put_bitmap(block);
    });
    if (update() != "image") return {};
    const auto stream = stream_over_copy(sent_[0].data() + 1, sent_[0].size() - 1);
    Gdiplus::GpBitmap* bitmap = nullptr;
    if (gdip::GdipCreateBitmapFromStream(stream.Get(), &bitmap) != Gdiplus::Ok) return {};
    const UniqueImage owner(bitmap);
    UINT width = 0;
    UINT height = 0;
    gdip::GdipGetImageWidth(bitmap, &width);
    gdip::GdipGetImageHeight(bitmap, &height);
    std::vector<Gdiplus::ARGB> pixels(std::size_t{width} * height);
    for (UINT i = 0; i < pixels.size(); ++i)
      gdip::GdipBitmapGetPixel(bitmap, static_cast<INT>(i % width), static_cast<INT>(i / width), &pixels[i]);
    return pixels;
  }
  using Pixels = std::vector<Gdiplus::ARGB>;
};

TEST_F(CaptureImageTest, PixelsStartAfterThePalette) {
  EXPECT_EQ(sent_pixels(dib(2, 1, 1, BI_RGB, {0x112233, 0x445566}, std::string("\x40\0\0\0", 4))),
            Pixels({0xFF112233, 0xFF445566}));
  EXPECT_EQ(script.pixel_offset, 40 + 2 * 4) << "two colours, although the header's count is 0";
  std::vector<std::uint32_t> colours(256);
  colours[7] = 0x010203;
  colours[200] = 0x0A0B0C;
  EXPECT_EQ(sent_pixels(dib(2, 1, 8, BI_RGB, colours, std::string("\x07\xC8\0\0", 4))),
            Pixels({0xFF010203, 0xFF0A0B0C}));
  EXPECT_EQ(script.pixel_offset, 40 + 256 * 4);
}

TEST_F(CaptureImageTest, PixelsStartAfterTheColourMasks) {
  const Pixels pixels = sent_pixels(dib(2, 1, 32, BI_BITFIELDS, {0xFF0000, 0xFF00, 0xFF},
                                        std::string("\x01\x02\x03\xFF\x04\x05\x06\xFF", 8)));
  EXPECT_EQ(script.pixel_offset, 40 + 3 * 4);
  ASSERT_EQ(pixels.size(), 2u);
  EXPECT_EQ(pixels[0] & 0xFFFFFF, 0x030201u);
  EXPECT_EQ(pixels[1] & 0xFFFFFF, 0x060504u);
}

TEST_F(CaptureImageTest, RowsMayBeTopDownOrBottomUp) {
  const std::string rows("\1\1\1\0\2\2\2\0\3\3\3\0\4\4\4\0", 16);
  const Pixels down = sent_pixels(dib(2, -2, 32, BI_RGB, {}, rows));
  const Pixels up = sent_pixels(dib(2, 2, 32, BI_RGB, {}, rows));
  ASSERT_EQ(down.size(), 4u);
  ASSERT_EQ(up.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(down[i] & 0xFFFFFF, 0x010101 * (i + 1));
    EXPECT_EQ(up[i] & 0xFFFFFF, 0x010101 * ((i ^ 2) + 1));
  }
  EXPECT_EQ(script.pixel_offset, 40);
}

TEST_F(CaptureImageTest, PaddingAfterRowsOf24BitPixelsIsSkipped) {
  const Pixels pixels = sent_pixels(dib(1, -2, 24, BI_RGB, {}, std::string("\1\2\3\0\4\5\6\0", 8)));
  EXPECT_EQ(pixels, Pixels({0xFF030201, 0xFF060504}));
}

TEST_F(CaptureImageTest, BitmapThatCannotBeDecodedSendsNothing) {
  EXPECT_TRUE(sent_pixels(dib(0, 0, 32, BI_RGB, {}, std::string(8, 'x'))).empty());
  EXPECT_TRUE(sent_pixels(dib(1, 1, 77, BI_RGB, {}, std::string(8, 'x'))).empty());
  EXPECT_TRUE(sent_.empty());
}

TEST_F(CaptureImageTest, ImageIsNotSentIfAnyStepOfItsConversionFails) {
  for (bool clip::Script::*const failing :
       {&clip::Script::refuse_data, &clip::Script::refuse_lock, &clip::Script::refuse_stream,
        &clip::Script::no_encoders, &clip::Script::refuse_save, &clip::Script::refuse_size,
        &clip::Script::refuse_stream_read}) {
    script.*failing = true;
    EXPECT_TRUE(sent_pixels(two_pixels()).empty());
    EXPECT_TRUE(sent_.empty());
    EXPECT_EQ(script.calls.back(), "close");
    script = {};
  }
}

TEST_F(CaptureImageTest, ImageThatIsReadOnlyInPartIsSentWithTheBytesThatWereRead) {
  ASSERT_EQ(sent_pixels(two_pixels()).size(), 2u);
  const Bytes whole = sent_.at(0);
  script.most_streamed = 20;
  EXPECT_TRUE(sent_pixels(two_pixels()).empty()) << "an incomplete image cannot be decoded";
  ASSERT_EQ(sent_.size(), 1u);
  EXPECT_EQ(sent_[0], Bytes(whole.begin(), whole.begin() + 1 + 20));
}

}  // namespace
}  // namespace vlk::agent
