// Rewrites the parameter sets of one H.264 stream between a machine and a browser.
#pragma once

#include <cstddef>

#include "relay/base/bytes.h"

namespace vlk::relay {

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
