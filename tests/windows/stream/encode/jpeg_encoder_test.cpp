// JPEG files: their decoded pixels, and the calls to the encoder.
#include "stream/encode/jpeg_encoder.h"

#include <windows.h>
#include <objidl.h>
#include <gdiplus.h>
#include <wrl/client.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <memory>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "tests/windows/support/holdings.h"
#include "tests/windows/support/painted_window.h"
#include "tests/windows/support/seam.h"

namespace {

struct Script {
  bool no_encoders = false, no_jpeg = false, no_stream = false, no_save = false;
  int saves = 0, disposals = 0;
  UINT count = 0;
  GUID parameter = {};
  ULONG values = 0, type = 0, quality = 0;
  INT width = 0, height = 0, stride = 0, format = 0;
  const BYTE* pixels = nullptr;
};
Script script;
std::mutex script_lock;  // for the test with two threads

HRESULT WINAPI create_stream(HGLOBAL memory, BOOL delete_on_release, IStream** stream) {
  static auto* const system = vlk::test::real<decltype(create_stream)>("ole32.dll", "CreateStreamOnHGlobal");
  if (script.no_stream) return E_OUTOFMEMORY;
  return system(memory, delete_on_release, stream);
}

}  // namespace

extern "C" {
void* __imp_CreateStreamOnHGlobal = reinterpret_cast<void*>(create_stream);
}

namespace Gdiplus::DllExports {

extern "C" GpStatus WINGDIPAPI GdipGetImageEncodersSize(UINT* count, UINT* size) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(UINT*, UINT*)>("gdiplus.dll", "GdipGetImageEncodersSize");
  const GpStatus status = system(count, size);
  if (script.no_encoders) *count = *size = 0;
  return status;
}

extern "C" GpStatus WINGDIPAPI GdipGetImageEncoders(UINT count, UINT size, ImageCodecInfo* encoders) {
  static auto* const system = vlk::test::real<GpStatus WINGDIPAPI(UINT, UINT, ImageCodecInfo*)>(
      "gdiplus.dll", "GdipGetImageEncoders");
  const GpStatus status = system(count, size, encoders);
  for (UINT i = 0; script.no_jpeg && i < count; ++i) {
    static wchar_t longer_name[] = L"image/jpeg2000";
    if (std::wcscmp(encoders[i].MimeType, L"image/jpeg") == 0) encoders[i].MimeType = longer_name;
  }
  return status;
}

extern "C" GpStatus WINGDIPAPI GdipCreateBitmapFromScan0(INT width, INT height, INT stride,
                                                         PixelFormat format, BYTE* pixels,
                                                         GpBitmap** bitmap) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(INT, INT, INT, PixelFormat, BYTE*, GpBitmap**)>(
          "gdiplus.dll", "GdipCreateBitmapFromScan0");
  {
    const std::lock_guard lock(script_lock);
    script.width = width;
    script.height = height;
    script.stride = stride;
    script.format = format;
    script.pixels = pixels;
  }
  return system(width, height, stride, format, pixels, bitmap);
}

extern "C" GpStatus WINGDIPAPI GdipSaveImageToStream(GpImage* image, IStream* stream,
                                                     GDIPCONST CLSID* encoder,
                                                     GDIPCONST EncoderParameters* parameters) {
  static auto* const system = vlk::test::real<GpStatus WINGDIPAPI(
      GpImage*, IStream*, GDIPCONST CLSID*, GDIPCONST EncoderParameters*)>("gdiplus.dll",
                                                                           "GdipSaveImageToStream");
  std::unique_lock lock(script_lock);
  ++script.saves;
  script.count = parameters->Count;
  script.parameter = parameters->Parameter[0].Guid;
  script.values = parameters->Parameter[0].NumberOfValues;
  script.type = parameters->Parameter[0].Type;
  script.quality = *static_cast<ULONG*>(parameters->Parameter[0].Value);
  lock.unlock();
  return script.no_save ? GenericError : system(image, stream, encoder, parameters);
}

extern "C" GpStatus WINGDIPAPI GdipDisposeImage(GpImage* image) {
  static auto* const system =
      vlk::test::real<GpStatus WINGDIPAPI(GpImage*)>("gdiplus.dll", "GdipDisposeImage");
  {
    const std::lock_guard lock(script_lock);
    ++script.disposals;
  }
  return system(image);
}

}  // namespace Gdiplus::DllExports

namespace vlk::agent {
namespace {

namespace gdip = Gdiplus::DllExports;
using Bytes = std::vector<std::uint8_t>;

// Each quarter of the image consists of whole blocks of 16 by 16 pixels.
constexpr std::uint32_t kWidth = 64, kHeight = 96;

class Jpeg : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    Gdiplus::GdiplusStartupInput input;
    Gdiplus::GdiplusStartup(&token_, &input, nullptr);
  }
  static void TearDownTestSuite() { Gdiplus::GdiplusShutdown(token_); }
  void SetUp() override { script = Script(); }

 private:
  static inline ULONG_PTR token_ = 0;
};

// The colour of a pixel. Each quarter of the image has one colour, which JPEG changes very little.
test::Colour field(std::uint32_t x, std::uint32_t y) {
  const auto level = [](bool high) { return static_cast<std::uint8_t>(high ? 220 : 30); };
  return {level(x < kWidth / 2), level(y < kHeight / 2), level((x < kWidth / 2) != (y < kHeight / 2))};
}

Bytes make_image(std::uint32_t stride, std::uint8_t fourth) {
  Bytes pixels(std::size_t{stride} * kHeight, 0xEE);
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const test::Colour colour = field(x, y);
      const std::uint8_t pixel[] = {colour.blue, colour.green, colour.red, fourth};
      std::memcpy(pixels.data() + std::size_t{y} * stride + std::size_t{x} * 4, pixel, 4);
    }
  }
  return pixels;
}

struct Image {
  UINT width = 0, height = 0;
  std::vector<std::uint32_t> pixels;  // 0xAARRGGBB
};

Image decode(const Bytes& file) {
  Microsoft::WRL::ComPtr<IStream> stream;
  CreateStreamOnHGlobal(nullptr, TRUE, stream.ReleaseAndGetAddressOf());
  stream->Write(file.data(), static_cast<ULONG>(file.size()), nullptr);
  stream->Seek({}, STREAM_SEEK_SET, nullptr);
  Gdiplus::GpBitmap* bitmap = nullptr;
  if (gdip::GdipCreateBitmapFromStream(stream.Get(), &bitmap) != Gdiplus::Ok) return {};
  Image image;
  gdip::GdipGetImageWidth(bitmap, &image.width);
  gdip::GdipGetImageHeight(bitmap, &image.height);
  for (UINT y = 0; y < image.height; ++y) {
    for (UINT x = 0; x < image.width; ++x) {
      Gdiplus::ARGB pixel = 0;
      gdip::GdipBitmapGetPixel(bitmap, static_cast<INT>(x), static_cast<INT>(y), &pixel);
      image.pixels.push_back(pixel);
    }
  }
  gdip::GdipDisposeImage(bitmap);
  return image;
}

void expect_fields(const Image& image) {
  ASSERT_EQ(image.width, kWidth);
  ASSERT_EQ(image.height, kHeight);
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const std::uint32_t pixel = image.pixels[y * kWidth + x];
      const test::Colour expected = field(x, y);
      const auto near_to = [](std::uint32_t got, int wanted) {
        return std::abs(static_cast<int>(got & 0xFF) - wanted) <= 8;
      };
      ASSERT_TRUE(near_to(pixel, expected.blue) && near_to(pixel >> 8, expected.green) &&
                  near_to(pixel >> 16, expected.red))
          << x << ", " << y << ": " << std::hex << pixel;
    }
  }
}

TEST_F(Jpeg, EncodedFileShowsTheImage) {
  const Bytes file = EncodeJpeg(make_image(kWidth * 4, 0).data(), kWidth, kHeight, kWidth * 4, 80);
  ASSERT_GT(file.size(), 4u);
  EXPECT_EQ(file[0], 0xFF);
  EXPECT_EQ(file[1], 0xD8);
  EXPECT_EQ(file[file.size() - 2], 0xFF);
  EXPECT_EQ(file[file.size() - 1], 0xD9);
  expect_fields(decode(file));
}

TEST_F(Jpeg, RowsOfTheImageMayBePadded) {
  expect_fields(
      decode(EncodeJpeg(make_image(kWidth * 4 + 28, 0).data(), kWidth, kHeight, kWidth * 4 + 28, 70)));
}

// Checks the format itself, because Wine's encoder ignores the fourth byte in a format with alpha too.
TEST_F(Jpeg, BitmapUsesTheCallersMemoryInAFormatWithoutAlpha) {
  const Bytes image = make_image(kWidth * 4 + 28, 0);
  EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4 + 28, 70);
  EXPECT_EQ(script.width, static_cast<INT>(kWidth));
  EXPECT_EQ(script.height, static_cast<INT>(kHeight));
  EXPECT_EQ(script.stride, static_cast<INT>(kWidth * 4 + 28));
  EXPECT_EQ(script.format, 0x22009);
  EXPECT_EQ(script.pixels, image.data());
}

TEST_F(Jpeg, FourthByteOfEachPixelHasNoEffect) {
  const Bytes file = EncodeJpeg(make_image(kWidth * 4, 0).data(), kWidth, kHeight, kWidth * 4, 70);
  EXPECT_EQ(EncodeJpeg(make_image(kWidth * 4, 0xFF).data(), kWidth, kHeight, kWidth * 4, 70), file);
  EXPECT_EQ(EncodeJpeg(make_image(kWidth * 4, 0x5A).data(), kWidth, kHeight, kWidth * 4, 70), file);
}

TEST_F(Jpeg, EncodingDoesNotChangeTheImage) {
  const Bytes image = make_image(kWidth * 4, 7);
  Bytes copy = image;
  EncodeJpeg(copy.data(), kWidth, kHeight, kWidth * 4, 70);
  EXPECT_EQ(copy, image);
}

TEST_F(Jpeg, QualityIsPassedUnchanged) {
  const Bytes image = make_image(kWidth * 4, 0);
  for (const std::uint32_t quality : {70u, 80u, 0u, 100u, 101u, 4294967295u}) {
    EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, quality);
    EXPECT_EQ(script.quality, quality);
    EXPECT_EQ(script.count, 1u);
    EXPECT_EQ(script.values, 1u);
    EXPECT_EQ(script.type, 4u);
    EXPECT_TRUE(IsEqualGUID(script.parameter, Gdiplus::EncoderQuality));
  }
}

TEST_F(Jpeg, ImageWithoutAreaGivesNoFile) {
  const Bytes image = make_image(kWidth * 4, 0);
  EXPECT_TRUE(EncodeJpeg(image.data(), 0, kHeight, kWidth * 4, 70).empty());
  EXPECT_TRUE(EncodeJpeg(image.data(), kWidth, 0, kWidth * 4, 70).empty());
  EXPECT_TRUE(EncodeJpeg(image.data(), 0, 0, 0, 70).empty());
}

TEST_F(Jpeg, SystemWithoutAJpegEncoderGivesNoFile) {
  const Bytes image = make_image(kWidth * 4, 0);
  script.no_encoders = true;
  EXPECT_TRUE(EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70).empty());
  script = Script();
  script.no_jpeg = true;
  EXPECT_TRUE(EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70).empty());
  EXPECT_EQ(script.saves, 0);
  script = Script();
  EXPECT_FALSE(EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70).empty());
}

TEST_F(Jpeg, FailedEncodingGivesNoFileAndReleasesTheBitmap) {
  const Bytes image = make_image(kWidth * 4, 0);
  script.no_stream = true;
  EXPECT_TRUE(EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70).empty());
  EXPECT_EQ(script.saves, 0);
  EXPECT_EQ(script.disposals, 1);
  script = Script();
  script.no_save = true;
  EXPECT_TRUE(EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70).empty());
  EXPECT_EQ(script.disposals, 1);
}

TEST_F(Jpeg, TwoThreadsCanEncodeAtTheSameTime) {
  const Bytes image = make_image(kWidth * 4, 0);
  const Bytes expected = EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70);
  const auto encode = [&](bool& equal) {
    equal = true;
    for (int i = 0; i < 50; ++i) {
      equal = equal && EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70) == expected;
    }
  };
  bool first = false;
  bool second = false;
  std::thread other([&] { encode(second); });
  encode(first);
  other.join();
  EXPECT_TRUE(first);
  EXPECT_TRUE(second);
}

TEST_F(Jpeg, EncodingLeavesNothingOpen) {
  const Bytes image = make_image(kWidth * 4, 0);
  const auto encode = [&] { EncodeJpeg(image.data(), kWidth, kHeight, kWidth * 4, 70); };
  EXPECT_EQ(test::left_open_by(encode), test::Holdings());
}

}  // namespace
}  // namespace vlk::agent
