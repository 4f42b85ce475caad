// Reads any bytes as two messages of an H.264 stream. The first byte gives the length of the first message.
#include <algorithm>
#include <span>

#include "relay/stream/h264/parameter_sets.h"
#include "relay/stream/h264/stream.h"
#include "require.h"

using namespace vlk::relay;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t cut = std::min<std::size_t>(data[0], size - 1) + 1;
  H264Stream stream;
  std::vector<std::uint8_t> first(data + 1, data + cut);
  std::vector<std::uint8_t> second(data + cut, data + size);
  (void)stream.complete(first, 0);
  const std::size_t before = second.size();
  (void)stream.complete(second, 0);
  // A parameter set has at least 4 bytes, and its completion adds at most 40 bytes.
  REQUIRE(second.size() <= before * 11);

  // More zeros before a stream that begins with two zeros do not change its other bytes.
  if (size >= 2 && data[0] == 0 && data[1] == 0) {
    std::vector<std::uint8_t> plain(data, data + size);
    std::vector<std::uint8_t> extended(3, 0);
    extended.insert(extended.end(), plain.begin(), plain.end());
    (void)H264Stream().complete(plain, 0);
    (void)H264Stream().complete(extended, 0);
    REQUIRE(std::ranges::equal(plain, std::span(extended).subspan(3)));
  }

  const auto complete = complete_parameter_set({data, size}, true);
  if (complete) REQUIRE(complete_parameter_set(*complete, true) == complete);
  return 0;
}
