// One H.264 stream between a machine and a browser: the kinds of its pictures, and its parameter sets, which
// are rewritten.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "relay/base/bytes.h"

namespace vlk::relay {

// What a decoder needs in order to show a picture.
enum class PictureNeeds : std::uint8_t {
  NoStream,  // the bytes are not an Annex B stream, for instance a JPEG file
  Nothing,   // the picture begins with an IDR slice, or the bytes have no slice
  Earlier,   // the pictures before it
};
[[nodiscard]] PictureNeeds needs_of(std::span<const std::uint8_t> picture);

class H264Stream {
 public:
  // Completes the parameter sets of the Annex B stream in `message`, from `start` to the end. Other content,
  // for instance a JPEG file, stays unchanged. Until a B slice was seen, the completed sets declare that
  // pictures arrive in the order in which they are shown. Returns false for the first message whose slice
  // contradicts this declaration: decoders then need a new key frame. Otherwise returns true.
  [[nodiscard]] bool complete(Bytes& message, std::size_t start);

 private:
  bool reordered_ = false;  // a B slice was seen
  bool promised_ = false;   // the last parameter set declared that pictures are in order
};

}  // namespace vlk::relay
