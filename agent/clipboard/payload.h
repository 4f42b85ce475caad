// The payload of clipboard messages, the same in both directions: one byte for the kind, then UTF-8 text, a
// PNG file or a list of files with their content. Integers are big-endian.
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

inline constexpr std::size_t kClipCountSize = 4;  // bytes of the file count

// Builds a payload: one byte for `kind`, then `content`.
[[nodiscard]] std::vector<std::uint8_t> PackClip(ClipboardKind kind, std::string_view content);

// A received file. `data` points into the payload that it was read from.
struct ClipFile {
  std::string name;  // UTF-8, not empty, without a separator
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;  // bytes
};

// Reads a list of files. `content` is the payload without its first byte, the kind. An incomplete list gives
// its complete files. A file without a usable name is left out. Content of fewer than 4 bytes gives no files.
[[nodiscard]] std::vector<ClipFile> ReadClipFiles(const std::uint8_t* content, std::size_t length);

// The part of a received file's name after the last separator; empty if that part is "." or "..". Other
// invalid names are left to the file system.
[[nodiscard]] std::string SafeClipFileName(std::string_view name);

// Collects the files of one message, up to a total of 64 MiB.
class ClipFilePacker {
 public:
  // Whether a file of `size` bytes can still be added.
  [[nodiscard]] bool fits(std::uint64_t size) const;
  // Adds a file. Its name is the part of the UTF-8 path after the last separator.
  void add(std::string_view path, const std::vector<std::uint8_t>& bytes);
  // The whole payload; empty if no file was added.
  [[nodiscard]] std::vector<std::uint8_t> payload() const;

 private:
  std::vector<std::uint8_t> records_;
  std::uint64_t total_ = 0;  // bytes of all added files, without their names
  std::uint32_t packed_ = 0;
};

}  // namespace vlk::agent
