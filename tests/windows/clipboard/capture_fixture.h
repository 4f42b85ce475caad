// Fixture for tests of what a change of the clipboard sends: a folder for copied files, and the sent payload
// in words.
#pragma once

#include <cstdint>
#include <string>

#include "tests/windows/clipboard/clipboard_fixture.h"

namespace vlk::agent {

constexpr std::size_t kMebibyte = 1 << 20;

class CaptureTest : public ClipboardTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Creates a file with this content and returns its path.
  std::wstring file_with(const wchar_t* name, const std::string& bytes) const;
  // Creates a sparse file of zeros, which needs no disk space, and returns its path.
  std::wstring file_of(const wchar_t* name, std::uint64_t size) const;
  // Reports one change of the clipboard to the agent. Returns what the agent sends: "text ...", "image", or
  // "files" with their count and each name and size. The result is empty if the agent sends nothing.
  static std::string update();
  static void put_bitmap(const std::string& block) { put(CF_DIB, block.data(), block.size()); }

  std::wstring folder_;
};

// The block of CF_DIB for a bitmap: header, colours, pixels.
std::string dib(LONG width, LONG height, WORD bits, DWORD compression,
                const std::vector<std::uint32_t>& colours, const std::string& pixels);

// A bitmap of two pixels.
std::string two_pixels();

// Bytes in which no two blocks of four bytes are equal. Different seeds give different bytes.
std::string distinct_bytes(std::size_t size, std::uint32_t seed);

}  // namespace vlk::agent
