// The colour conversion, compared byte for byte with its formulas and with its plain implementation. Guard
// bytes show that it writes nothing else.
#include "stream/encode/colour.h"

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

using Bytes = std::vector<std::uint8_t>;
using Conversion = decltype(ConvertBgraToNv12);

constexpr std::uint8_t kUntouched = 0xA5;
constexpr std::size_t kGuard = 32;  // bytes before and after a plane that must not change

// Both planes between guard bytes.
struct Planes {
  Planes(std::size_t luma_size, std::size_t chroma_size)
      : luma(luma_size + 2 * kGuard, kUntouched), chroma(chroma_size + 2 * kGuard, kUntouched) {}
  bool operator==(const Planes&) const = default;
  std::uint8_t Luma(std::size_t i) const { return luma[kGuard + i]; }
  std::uint8_t Chroma(std::size_t i) const { return chroma[kGuard + i]; }
  Bytes luma, chroma;
};

// Converts a copy of the source in memory of exactly its size, so that a sanitizer reports a read past the
// end.
Planes Convert(Conversion* conversion, const Bytes& source, std::int32_t width, std::int32_t height,
               std::int32_t stride) {
  const std::size_t across = width > 0 ? static_cast<std::size_t>(width) : 0;
  const std::size_t down = height > 0 ? static_cast<std::size_t>(height) : 0;
  Planes planes(across * down, across * ((down + 1) / 2) + (across % 2));
  const auto exact = std::make_unique<std::uint8_t[]>(source.size());
  std::copy(source.begin(), source.end(), exact.get());
  conversion(exact.get(), width, height, stride, planes.luma.data() + kGuard, planes.chroma.data() + kGuard);
  return planes;
}

Bytes Noise(std::size_t size, std::uint32_t seed) {
  Bytes bytes(size);
  for (auto& byte : bytes) {
    seed = seed * 1664525 + 1013904223;
    byte = static_cast<std::uint8_t>(seed >> 24);
  }
  return bytes;
}

Bytes Pixels(std::initializer_list<std::initializer_list<std::uint8_t>> rgb) {
  Bytes bytes;
  for (const auto& colour : rgb) {
    const std::uint8_t* const c = colour.begin();
    bytes.insert(bytes.end(), {c[2], c[1], c[0], 0x77});
  }
  return bytes;
}

struct BothConversions : testing::TestWithParam<Conversion*> {};
INSTANTIATE_TEST_SUITE_P(Colour, BothConversions,
                         testing::Values(ConvertBgraToNv12, ConvertBgraToNv12Plainly),
                         [](const auto& form) { return form.index == 0 ? "Shipped" : "Plain"; });

TEST_P(BothConversions, KnownColoursAreConvertedToKnownValues) {
  const struct {
    std::initializer_list<std::uint8_t> rgb;
    std::uint8_t y, u, v;
  } rows[] = {
      {{0, 0, 0}, 16, 128, 128},     {{255, 255, 255}, 235, 128, 128}, {{128, 128, 128}, 126, 128, 128},
      {{255, 0, 0}, 82, 90, 240},    {{0, 255, 0}, 144, 54, 34},       {{0, 0, 255}, 41, 240, 110},
      {{255, 255, 0}, 210, 16, 146},
  };
  for (const auto& row : rows) {
    const Bytes pixel = Pixels({row.rgb});
    for (const std::int32_t width : {1, 2, 16, 40}) {
      Bytes source;
      for (std::int32_t x = 0; x < width; ++x)
        source.insert(source.end(), pixel.begin(), pixel.end());
      const Planes planes = Convert(GetParam(), source, width, 1, width * 4);
      for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x)
        EXPECT_EQ(planes.Luma(x), row.y);
      for (std::size_t x = 0; x < static_cast<std::size_t>(width); x += 2) {
        EXPECT_EQ(planes.Chroma(x), row.u);
        EXPECT_EQ(planes.Chroma(x + 1), row.v);
      }
    }
  }
}

TEST_P(BothConversions, FourthByteOfEachPixelIsIgnored) {
  Bytes source = Noise(64 * 4 * 2, 1);
  const Planes before = Convert(GetParam(), source, 64, 2, 64 * 4);
  for (std::size_t i = 3; i < source.size(); i += 4)
    source[i] = static_cast<std::uint8_t>(~source[i]);
  EXPECT_EQ(Convert(GetParam(), source, 64, 2, 64 * 4), before);
}

TEST_P(BothConversions, ChromaOfEachTwoByTwoBlockComesOnlyFromItsTopLeftPixel) {
  const Bytes corner = Pixels({{200, 30, 90}});
  const Planes alone = Convert(GetParam(), corner, 1, 1, 4);
  for (const std::int32_t width : {2, 32}) {
    // Every block has the corner's colour at its top left, and three other colours.
    const Bytes above = Pixels({{200, 30, 90}, {0, 255, 0}}), below = Pixels({{255, 0, 255}, {1, 2, 3}});
    Bytes source;
    for (const Bytes* const pair : {&above, &below}) {
      for (std::int32_t x = 0; x < width; x += 2)
        source.insert(source.end(), pair->begin(), pair->end());
    }
    const Planes planes = Convert(GetParam(), source, width, 2, width * 4);
    for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x)
      EXPECT_EQ(planes.Chroma(x), alone.Chroma(x % 2)) << width;
  }
}

TEST_P(BothConversions, RowsStartAtMultiplesOfTheStride) {
  constexpr std::int32_t kWidth = 37, kHeight = 5, kStride = kWidth * 4 + 19;
  const Bytes padded = Noise(kStride * (kHeight - 1) + kWidth * 4, 7);
  Bytes packed;
  for (std::ptrdiff_t y = 0; y < kHeight; ++y)
    packed.insert(packed.end(), padded.begin() + y * kStride, padded.begin() + y * kStride + kWidth * 4);
  EXPECT_EQ(Convert(GetParam(), padded, kWidth, kHeight, kStride),
            Convert(GetParam(), packed, kWidth, kHeight, kWidth * 4));
}

TEST_P(BothConversions, ConversionOfAnEmptyAreaWritesNothing) {
  const Bytes source = Noise(64 * 4, 3);
  for (const std::int32_t width : {-2147483647 - 1, -1, 0, 64}) {
    for (const std::int32_t height : {-2147483647 - 1, -1, 0}) {
      for (const auto& [w, h] : {std::pair(width, height), std::pair(height, width)}) {
        const Planes planes = Convert(GetParam(), source, w, h, 256);
        EXPECT_EQ(planes.luma, Bytes(planes.luma.size(), kUntouched)) << w << " by " << h;
        EXPECT_EQ(planes.chroma, Bytes(planes.chroma.size(), kUntouched)) << w << " by " << h;
      }
    }
  }
}

// If the width is odd, the last U-V pair of a chroma row ends one byte after the row. The next row's first U
// overwrites this byte; the last row keeps its V.
TEST_P(BothConversions, LastChromaPairOfARowOfOddWidthIsPartlyOverwrittenByTheNextRow) {
  const Bytes red = Pixels({{255, 0, 0}, {255, 0, 0}, {255, 0, 0}});
  const Bytes blue = Pixels({{0, 0, 255}, {0, 0, 255}, {0, 0, 255}});
  Bytes source;
  for (const Bytes* const row : {&red, &red, &blue})
    source.insert(source.end(), row->begin(), row->end());
  const Planes planes = Convert(GetParam(), source, 3, 3, 12);
  const Bytes chroma(planes.chroma.begin() + kGuard, planes.chroma.end() - kGuard);
  EXPECT_EQ(chroma, (Bytes{90, 240, 90, 240, 110, 240, 110}));
}

TEST(Colour, ChromaCapacityIncludesEveryByteThatTheConversionWrites) {
  EXPECT_EQ(ChromaCapacity(4, 4), 4u * 2 + 1);
  EXPECT_EQ(ChromaCapacity(3, 3), 3u * 2 + 1);
  EXPECT_EQ(ChromaCapacity(4, 5), 4u * 3 + 1);
  EXPECT_EQ(ChromaCapacity(5, 1), 6u);
  EXPECT_EQ(ChromaCapacity(65535, 65535), std::size_t{65535} * 32768 + 1);
}

TEST(Colour, FastConversionEqualsThePlainConversionForEverySizeStrideAndAddress) {
  std::uint32_t seed = 0;
  for (std::int32_t width = 1; width <= 70; ++width) {
    for (std::int32_t height = 1; height <= 5; ++height) {
      for (const std::int32_t padding : {0, 1, 3, 4, 13, 64}) {
        const std::int32_t stride = width * 4 + padding;
        const Bytes source = Noise(static_cast<std::size_t>(stride * (height - 1) + width * 4), ++seed);
        ASSERT_EQ(Convert(ConvertBgraToNv12, source, width, height, stride),
                  Convert(ConvertBgraToNv12Plainly, source, width, height, stride))
            << width << " by " << height << ", stride " << stride;
      }
    }
  }
  const Bytes source = Noise(50 * 4 * 3 + 16, 99);
  for (std::size_t shift = 0; shift < 16; ++shift) {
    Planes shipped(50 * 3 + 16, 50 * 2 + 16), plain = shipped;
    ConvertBgraToNv12(&source[shift], 50, 3, 200, &shipped.luma[kGuard + shift],
                      &shipped.chroma[kGuard + 15 - shift]);
    ConvertBgraToNv12Plainly(&source[shift], 50, 3, 200, &plain.luma[kGuard + shift],
                             &plain.chroma[kGuard + 15 - shift]);
    ASSERT_EQ(shipped, plain) << shift;
  }
}

TEST(Colour, NegativeStrideReadsTheRowsFromTheBottomUp) {
  constexpr std::size_t kRow = 33 * 4;
  const Bytes source = Noise(kRow * 4, 5);
  Bytes turned;
  for (std::ptrdiff_t y = 3; y >= 0; --y) {
    const auto row = source.begin() + y * static_cast<std::ptrdiff_t>(kRow);
    turned.insert(turned.end(), row, row + kRow);
  }
  Planes planes(33 * 4, 33 * 2 + 1);
  ConvertBgraToNv12(&source[kRow * 3], 33, 4, -static_cast<std::int32_t>(kRow), &planes.luma[kGuard],
                    &planes.chroma[kGuard]);
  EXPECT_EQ(planes, Convert(ConvertBgraToNv12, turned, 33, 4, kRow));
}

// Each row has one value of red and all combinations of green and blue. Each colour is at an even position,
// where chroma is computed, and at the odd position after it.
TEST(Colour, AllColoursMatchTheFormulas) {
  constexpr std::int32_t kWidth = 2 * 256 * 256;
  Bytes source(kWidth * 4), luma(kWidth), chroma(kWidth), plain_luma(kWidth), plain_chroma(kWidth);
  for (int r = 0; r < 256; ++r) {
    for (std::size_t x = 0; x < kWidth; ++x) {
      source[4 * x] = static_cast<std::uint8_t>(x >> 1);
      source[4 * x + 1] = static_cast<std::uint8_t>(x >> 9);
      source[4 * x + 2] = static_cast<std::uint8_t>(r);
    }
    ConvertBgraToNv12(source.data(), kWidth, 1, kWidth * 4, luma.data(), chroma.data());
    ConvertBgraToNv12Plainly(source.data(), kWidth, 1, kWidth * 4, plain_luma.data(), plain_chroma.data());
    ASSERT_EQ(luma, plain_luma) << r;
    ASSERT_EQ(chroma, plain_chroma) << r;
    for (std::size_t x = 0; x < kWidth; x += 2) {
      const int b = source[4 * x], g = source[4 * x + 1];
      ASSERT_EQ(luma[x], ((66 * r + 129 * g + 25 * b + 128) >> 8) + 16) << r << ' ' << g << ' ' << b;
      ASSERT_EQ(chroma[x], ((112 * b - 74 * g - 38 * r + 128) >> 8) + 128) << r << ' ' << g << ' ' << b;
      ASSERT_EQ(chroma[x + 1], ((112 * r - 94 * g - 18 * b + 128) >> 8) + 128) << r << ' ' << g << ' ' << b;
    }
  }
}

}  // namespace
}  // namespace vlk::agent
