// Any bytes as two messages of an H.264 stream on their way to a browser; the first byte says where they
// part.
#include <algorithm>

#include "relay/h264/parameter_sets.h"
#include "relay/h264/stream.h"
#include "require.h"

using namespace vlk::relay;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t cut = std::min<std::size_t>(data[0], size - 1) + 1;
  H264Stream stream;
  std::vector<std::uint8_t> first(data + 1, data + cut);
  std::vector<std::uint8_t> second(data + cut, data + size);
  stream.pass(first, 0);
  const std::size_t before = second.size();
  stream.pass(second, 0);
  // A parameter set takes 4 bytes and more, and hardly 40 are ever added to one.
  REQUIRE(second.size() <= before * 11);

  const auto complete = complete_parameter_set({data, size}, true);
  if (complete) REQUIRE(complete_parameter_set(*complete, true) == complete);
  return 0;
}
