// Fixture for tests of desktop duplication on a scripted machine: two adapters with one output each, and a
// desktop texture whose rows are 16 bytes longer than their pixels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/stream/capture/dxgi_seam.h"

namespace vlk::agent {

constexpr RECT kFirst = {0, 0, 800, 600};
constexpr RECT kSecond = {800, -200, 2080, 824};
constexpr RECT kThird = {-1280, 0, 0, 720};

class Duplication : public testing::Test {
 protected:
  using Strings = std::vector<std::string>;
  using Arguments = std::vector<std::int64_t>;

  void SetUp() override;
  void TearDown() override;

  // The arguments of the first call with this name, or -1 if there was no such call.
  static Arguments ArgumentsOf(const std::string& name);
  // The pixels of the desktop texture without the bytes between its rows.
  static std::vector<std::uint8_t> ExpectedPixels();
};

}  // namespace vlk::agent
