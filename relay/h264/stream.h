// Rewrites the parameter sets of one H.264 stream between a machine and a browser.
#pragma once

#include <cstddef>

#include "relay/base/bytes.h"

namespace vlk::relay {

class H264Stream {
 public:
  // Completes the parameter sets of the Annex B stream in `message`, from `start` to the end. Other content,
  // for instance a JPEG file, stays unchanged. Until a B slice was seen, the sets promise that pictures
  // arrive in the order in which they are shown. False, once, when a slice breaks that promise: decoders then
  // need a new key frame.
  [[nodiscard]] bool complete(Bytes& message, std::size_t start);

 private:
  bool reordered_ = false;  // a B slice was seen
  bool promised_ = false;   // the last parameter set promised pictures in order
};

}  // namespace vlk::relay
