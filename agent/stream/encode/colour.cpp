// The conversion, once as simple loops and once with SSSE3 instructions. Only 128-bit registers are used:
// this project's compiler for Windows aligns spilled 256-bit registers wrongly (GCC bug 54412), and memory
// limits the speed in any case.
#include "stream/encode/colour.h"

#if defined(__x86_64__) || defined(__i386__)
#include <tmmintrin.h>
#define VLK_HAS_SSSE3_CODE 1
#endif

namespace vlk::agent {
namespace {

constexpr std::ptrdiff_t kPixel = 4;  // bytes

std::uint8_t LumaOf(const std::uint8_t* pixel) {
  const int b = pixel[0], g = pixel[1], r = pixel[2];
  return static_cast<std::uint8_t>(((66 * r + 129 * g + 25 * b + 128) >> 8) + 16);
}

// The sums can be negative. The shift rounds them down.
std::uint8_t UOf(const std::uint8_t* pixel) {
  const int b = pixel[0], g = pixel[1], r = pixel[2];
  return static_cast<std::uint8_t>(((112 * b - 74 * g - 38 * r + 128) >> 8) + 128);
}

std::uint8_t VOf(const std::uint8_t* pixel) {
  const int b = pixel[0], g = pixel[1], r = pixel[2];
  return static_cast<std::uint8_t>(((112 * r - 94 * g - 18 * b + 128) >> 8) + 128);
}

void LumaRow(const std::uint8_t* row, std::ptrdiff_t from, std::ptrdiff_t width, std::uint8_t* luma) {
  for (std::ptrdiff_t x = from; x < width; ++x)
    luma[x] = LumaOf(row + x * kPixel);
}

// `from` is even.
void ChromaRow(const std::uint8_t* row, std::ptrdiff_t from, std::ptrdiff_t width, std::uint8_t* chroma) {
  for (std::ptrdiff_t x = from; x < width; x += 2) {
    chroma[x] = UOf(row + x * kPixel);
    chroma[x + 1] = VOf(row + x * kPixel);
  }
}

#ifdef VLK_HAS_SSSE3_CODE

constexpr std::ptrdiff_t kBlock = 16;  // pixels converted per step

#define VLK_SSSE3 __attribute__((target("ssse3")))

// Every sum below fits in a signed 16-bit word. For luma, the coefficients are unsigned, because 129 does not
// fit in a signed byte, and 128 is subtracted from each byte of a pixel; the sums are from -28160 to 27940.
// The subtraction lowers each sum by 128 * (66 + 129 + 25), which is 110 after the shift. This 110 is added
// again together with the formula's 16. For chroma, the coefficients are signed; the sums are from -28560 to
// 28560.
constexpr char kLumaOffset = 110 + 16;
constexpr char kChromaOffset = -128;  // the same byte as 128

// Distance in bytes at which memory is prefetched. Prefetching costs nothing if the frame is in the cache. At
// 3840 by 2160 pixels, which exceed the cache, it reduced the time for a frame from 2.5 to 1.5 ms.
constexpr std::uintptr_t kPrefetchDistance = 4096;

VLK_SSSE3 inline __m128i Load(const std::uint8_t* from) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

VLK_SSSE3 inline void Store(std::uint8_t* to, __m128i value) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(to), value);
}

// One coefficient for each byte of a pixel, in the order of the bytes in memory.
VLK_SSSE3 inline __m128i Coefficients(int first, int second, int third, int fourth = 0) {
  const auto byte = [](int value) { return std::uint32_t{static_cast<std::uint8_t>(value)}; };
  return _mm_set1_epi32(
      static_cast<int>(byte(first) | byte(second) << 8 | byte(third) << 16 | byte(fourth) << 24));
}

// Computes (sum + 128) >> 8 for each signed 16-bit word.
VLK_SSSE3 inline __m128i RoundedHighBytes(__m128i sums) {
  return _mm_mulhrs_epi16(sums, _mm_set1_epi16(128));
}

VLK_SSSE3 inline __m128i LumaSums(__m128i four) {
  const __m128i products =
      _mm_maddubs_epi16(Coefficients(25, 129, 66), _mm_xor_si128(four, _mm_set1_epi8(-128)));
  return _mm_madd_epi16(products, _mm_set1_epi16(1));
}

VLK_SSSE3 inline __m128i LumaOfEight(__m128i four, __m128i next_four) {
  return RoundedHighBytes(_mm_packs_epi32(LumaSums(four), LumaSums(next_four)));
}

// U and V of four pixels as 16-bit words. The first product contains the blue and green part of U and the red
// part of V. The second product is that of the pixels with their halves swapped. It contains the red part of
// U and the blue and green part of V.
VLK_SSSE3 inline __m128i ChromaOfFour(__m128i four) {
  const __m128i swapped =
      _mm_shuffle_epi8(four, _mm_setr_epi8(2, 3, 0, 1, 6, 7, 4, 5, 10, 11, 8, 9, 14, 15, 12, 13));
  const __m128i first = _mm_maddubs_epi16(four, Coefficients(112, -74, 112, 0));
  const __m128i second = _mm_maddubs_epi16(swapped, Coefficients(-38, 0, -18, -94));
  return RoundedHighBytes(_mm_add_epi16(first, second));
}

VLK_SSSE3 inline __m128i EvenPixels(__m128i four, __m128i next_four) {
  return _mm_castps_si128(
      _mm_shuffle_ps(_mm_castsi128_ps(four), _mm_castsi128_ps(next_four), _MM_SHUFFLE(2, 0, 2, 0)));
}

template <bool kWithChroma>
VLK_SSSE3 inline void ConvertBlock(const std::uint8_t* pixels, std::uint8_t* luma, std::uint8_t* chroma) {
  // The address is an integer, because it can be after the end of the frame, where C++ does not allow a
  // pointer.
  const std::uintptr_t ahead = reinterpret_cast<std::uintptr_t>(pixels) + kPrefetchDistance;
  _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
  const __m128i p0 = Load(pixels), p1 = Load(pixels + 16), p2 = Load(pixels + 32), p3 = Load(pixels + 48);
  const __m128i y = _mm_packs_epi16(LumaOfEight(p0, p1), LumaOfEight(p2, p3));
  Store(luma, _mm_add_epi8(y, _mm_set1_epi8(kLumaOffset)));
  if constexpr (!kWithChroma) return;
  const __m128i uv = _mm_packs_epi16(ChromaOfFour(EvenPixels(p0, p1)), ChromaOfFour(EvenPixels(p2, p3)));
  Store(chroma, _mm_add_epi8(uv, _mm_set1_epi8(kChromaOffset)));
}

template <bool kWithChroma>
VLK_SSSE3 void ConvertRow(const std::uint8_t* row, std::ptrdiff_t width, std::uint8_t* luma,
                          std::uint8_t* chroma) {
  std::ptrdiff_t x = 0;
  for (; x + kBlock <= width; x += kBlock) {
    ConvertBlock<kWithChroma>(row + x * kPixel, luma + x, chroma + x);
  }
  LumaRow(row, x, width, luma);
  if constexpr (kWithChroma) ChromaRow(row, x, width, chroma);
}

// Converts luma and chroma in one pass over the source. The result equals that of two passes: the planes do
// not overlap, and the chroma rows are still written in order. With an odd width, each chroma row therefore
// overwrites the byte that the previous row has written beyond its own end.
void ConvertBySsse3(const std::uint8_t* source, std::ptrdiff_t width, std::ptrdiff_t height,
                    std::ptrdiff_t stride, std::uint8_t* luma, std::uint8_t* chroma) {
  for (std::ptrdiff_t y = 0; y < height; y += 2) {
    ConvertRow<true>(source + y * stride, width, luma + y * width, chroma + y / 2 * width);
    if (y + 1 < height) ConvertRow<false>(source + (y + 1) * stride, width, luma + (y + 1) * width, nullptr);
  }
}

#endif

}  // namespace

void ConvertBgraToNv12Plainly(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                              std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma) {
  for (std::ptrdiff_t y = 0; y < height; ++y)
    LumaRow(source + y * stride, 0, width, luma + y * width);
  for (std::ptrdiff_t y = 0; y < height; y += 2)
    ChromaRow(source + y * stride, 0, width, chroma + y / 2 * width);
}

void ConvertBgraToNv12(const std::uint8_t* source, std::int32_t width, std::int32_t height,
                       std::int32_t stride, std::uint8_t* luma, std::uint8_t* chroma) {
#ifdef VLK_HAS_SSSE3_CODE
  if (__builtin_cpu_supports("ssse3")) {
    ConvertBySsse3(source, width, height, stride, luma, chroma);
    return;
  }
#endif
  ConvertBgraToNv12Plainly(source, width, height, stride, luma, chroma);
}

}  // namespace vlk::agent
