// Builds the scripted adapters, outputs and desktop texture.
#include "tests/windows/stream/capture/duplication_fixture.h"

#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {

using test::dxgi::machine;

void Duplication::SetUp() {
  test::remove_debug_log();
  machine = {};
  machine.adapters = {{{kFirst, true}}, {{kSecond, true}}};
  machine.pitch = 48;
  machine.memory.resize(std::size_t{machine.pitch} * machine.height);
  for (std::size_t i = 0; i < machine.memory.size(); ++i)
    machine.memory[i] = static_cast<std::uint8_t>(i * 37 + 11);
}

void Duplication::TearDown() {
  EXPECT_EQ(machine.live, 0) << "objects are not released";
  test::remove_debug_log();
}

Duplication::Arguments Duplication::ArgumentsOf(const std::string& name) {
  for (const auto& call : machine.calls) {
    if (call.name == name) return call.arguments;
  }
  return {-1};
}

std::vector<std::uint8_t> Duplication::ExpectedPixels() {
  std::vector<std::uint8_t> pixels;
  for (std::size_t row = 0; row < machine.height; ++row) {
    const auto first = machine.memory.begin() + static_cast<std::ptrdiff_t>(row * machine.pitch);
    pixels.insert(pixels.end(), first, first + static_cast<std::ptrdiff_t>(machine.width * 4));
  }
  return pixels;
}

}  // namespace vlk::agent
