// Cost of the colour conversion per frame: the agent's conversion, its version in plain loops, libyuv's
// (which averages the chroma, so only its speed is comparable), and a plain copy of the frame's bytes. All
// run on one thread. Rows are either packed and aligned to 64 bytes, or four bytes longer than their pixels
// and at odd addresses.
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

#include <benchmark/benchmark.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/cpu_id.h>

#include "stream/encode/colour.h"

namespace {

constexpr std::align_val_t kAlignment{64};  // bytes, a cache line

struct AlignedDelete {
  void operator()(std::uint8_t* bytes) const { ::operator delete[](bytes, kAlignment); }
};
using AlignedBytes = std::unique_ptr<std::uint8_t[], AlignedDelete>;

AlignedBytes make_bytes(std::size_t size) {
  AlignedBytes bytes(new (kAlignment) std::uint8_t[size]);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>(i * 2654435761u >> 11);
  return bytes;
}

// A frame and a buffer for its conversion.
struct Picture {
  explicit Picture(const benchmark::State& state)
      : width(static_cast<std::int32_t>(state.range(0))),
        height(static_cast<std::int32_t>(state.range(1))),
        shift(state.range(2) != 0 ? 0 : 1),
        stride(width * 4 + 4 * shift),
        source_size(static_cast<std::size_t>(stride) * static_cast<std::size_t>(height)),
        luma_size(static_cast<std::size_t>(width) * static_cast<std::size_t>(height)),
        source_bytes(make_bytes(source_size + 1)),
        target_bytes(make_bytes(luma_size + vlk::agent::ChromaCapacity(width, height) + 1)) {}

  const std::uint8_t* source() const { return source_bytes.get() + shift; }
  std::uint8_t* luma() const { return target_bytes.get() + shift; }
  std::uint8_t* chroma() const { return luma() + luma_size; }

  const std::int32_t width, height, shift, stride;
  const std::size_t source_size, luma_size;
  const AlignedBytes source_bytes, target_bytes;
};

void count(benchmark::State& state, const Picture& picture) {
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                          static_cast<std::int64_t>(picture.source_size));
}

using Conversion = void(const std::uint8_t*, std::int32_t, std::int32_t, std::int32_t, std::uint8_t*,
                        std::uint8_t*);

void convert(benchmark::State& state, Conversion* conversion) {
  const Picture picture(state);
  for (auto step : state) {
    conversion(picture.source(), picture.width, picture.height, picture.stride, picture.luma(),
               picture.chroma());
    benchmark::ClobberMemory();
  }
  count(state, picture);
}

void ConvertOurs(benchmark::State& state) {
  convert(state, vlk::agent::ConvertBgraToNv12);
}

void ConvertPlainly(benchmark::State& state) {
  convert(state, vlk::agent::ConvertBgraToNv12Plainly);
}

void convert_by_libyuv(benchmark::State& state) {
  convert(state, [](const std::uint8_t* source, std::int32_t width, std::int32_t height, std::int32_t stride,
                    std::uint8_t* luma, std::uint8_t* chroma) {
    // libyuv names the byte order blue, green, red, alpha "ARGB".
    libyuv::ARGBToNV12(source, stride, luma, width, chroma, width, width, height);
  });
}

// Uses the widest registers of this processor.
void ConvertLibyuv(benchmark::State& state) {
  convert_by_libyuv(state);
}

// Limited to 128-bit registers, like the agent.
void ConvertLibyuv128(benchmark::State& state) {
  libyuv::MaskCpuFlags(libyuv::kCpuInitialized | libyuv::kCpuHasX86 | libyuv::kCpuHasSSE2 |
                       libyuv::kCpuHasSSSE3);
  convert_by_libyuv(state);
  libyuv::MaskCpuFlags(-1);
}

void CopyFrame(benchmark::State& state) {
  const Picture picture(state);
  const AlignedBytes copy = make_bytes(picture.source_size + 1);
  for (auto step : state) {
    std::memcpy(copy.get() + picture.shift, picture.source(), picture.source_size);
    benchmark::ClobberMemory();
  }
  count(state, picture);
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"width", "height", "aligned"})->Unit(benchmark::kMillisecond);
  for (const int aligned : {1, 0}) {
    bench->Args({1280, 720, aligned});
    bench->Args({1920, 1080, aligned});
    bench->Args({3840, 2160, aligned});
  }
}

BENCHMARK(ConvertOurs)->Apply(sizes);
BENCHMARK(ConvertLibyuv)->Apply(sizes);
BENCHMARK(ConvertLibyuv128)->Apply(sizes);
BENCHMARK(CopyFrame)->Apply(sizes);
BENCHMARK(ConvertPlainly)->Apply(sizes);

}  // namespace
