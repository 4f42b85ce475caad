// Parses any bytes as the stream after the upgrade. The frames must not depend on the sizes of the reads.
#include <algorithm>
#include <string_view>

#include "require.h"
#include "wire/websocket.h"

namespace {

struct Outcome {
  std::vector<vlk::WsFrame> frames;
  bool failed = false;
};

// Feeds the bytes to a parser in reads of `step` bytes.
Outcome ParseInSteps(const std::uint8_t* data, std::size_t size, std::size_t step) {
  Outcome outcome;
  vlk::WsParser parser;
  for (std::size_t at = 0; at < size && !parser.failed; at += step) {
    parser.feed(data + at, std::min(step, size - at));
    while (auto frame = parser.next())
      outcome.frames.push_back(std::move(*frame));
  }
  outcome.failed = parser.failed;
  return outcome;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t step = data[0] % 16 + 1u;
  const Outcome whole = ParseInSteps(data + 1, size - 1, size);
  const Outcome cut = ParseInSteps(data + 1, size - 1, step);
  REQUIRE(whole.failed == cut.failed);
  REQUIRE(whole.frames.size() == cut.frames.size());
  for (std::size_t i = 0; i < whole.frames.size(); ++i) {
    REQUIRE(whole.frames[i].opcode == cut.frames[i].opcode);
    REQUIRE(whole.frames[i].fin == cut.frames[i].fin);
    REQUIRE(whole.frames[i].payload == cut.frames[i].payload);
  }

  (void)vlk::upgrade_accepted(std::string_view(reinterpret_cast<const char*>(data), size));

  // A frame that is sent must be read back unchanged, masked or not.
  for (const bool masked : {false, true}) {
    const auto frame = vlk::encode_frame(vlk::kWsBinary, data, size, masked);
    const Outcome own = ParseInSteps(frame.data(), frame.size(), step);
    REQUIRE(!own.failed && own.frames.size() == 1 && own.frames[0].fin);
    REQUIRE(std::equal(own.frames[0].payload.begin(), own.frames[0].payload.end(), data, data + size));
  }
  return 0;
}
