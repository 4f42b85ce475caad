// How the chunks of uploads are cut on their way to a machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::relay {

// The bytes of a file in one chunk to a machine. A key press waits for one chunk in the relay and, in the
// system's send buffer, for as many bytes again.
inline constexpr std::size_t kUploadPiece = 32 * 1024;

// The number of chunks into which one with so many bytes of the file is cut.
[[nodiscard]] constexpr std::uint32_t pieces_of(std::uint64_t bytes) {
  return bytes == 0 ? 1 : static_cast<std::uint32_t>((bytes + kUploadPiece - 1) / kUploadPiece);
}

}  // namespace vlk::relay
