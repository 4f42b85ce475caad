// The payload of clipboard messages, the same both ways: one byte that says what it is, then UTF-8 text, a
// PNG file or a list of files by value. Integers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vlk::agent {

enum class ClipboardKind : std::uint8_t {
  Text = 1,   // UTF-8 without a terminator
  Image = 2,  // a PNG file
  Files = 3,  // u32 count, then for each file: u32 length of the name, name, u64 size, bytes
};

inline constexpr std::size_t kClipCountSize = 4;  // bytes of the number of files

// A payload of the kind with the given content.
std::vector<std::uint8_t> PackClip(ClipboardKind kind, std::string_view content);

// A received file. Its bytes lie in the payload that it was read from.
struct ClipFile {
  std::string name;  // UTF-8, not empty, without a separator
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;  // bytes
};

// The files of a list, `content` being what follows the kind. A list that is cut short gives the files that
// are complete; one without a usable name is left out. Fewer than 4 bytes give none.
std::vector<ClipFile> ReadClipFiles(const std::uint8_t* content, std::size_t length);

// What a received file may be called: the part after the last separator, or empty when nothing usable is
// left. Everything else is the file system's to judge.
std::string SafeClipFileName(std::string_view name);

// Collects the files of one message, up to a total of 64 MiB.
class ClipFilePacker {
 public:
  // Whether a file of that many bytes may still be added.
  bool fits(std::uint64_t size) const;
  // The name is what follows the path's last separator; path in UTF-8.
  void add(std::string_view path, const std::vector<std::uint8_t>& bytes);
  // The whole payload; empty when no file was added.
  std::vector<std::uint8_t> payload() const;

 private:
  std::vector<std::uint8_t> records_;
  std::uint64_t total_ = 0;  // bytes of the files alone
  std::uint32_t packed_ = 0;
};

}  // namespace vlk::agent
