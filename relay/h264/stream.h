// Follows one H.264 stream of a machine on its way to a browser.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vlk::relay {

class H264Stream {
 public:
  // Completes the parameter sets in an Annex B stream that stands in `message` from `start` to the end;
  // anything else there, a JPEG file for instance, is left as it is. The promise that pictures come in order
  // is given as long as no slice has shown otherwise. False, once, when a slice breaks a promise that was
  // given: decoders need a new key frame then.
  bool pass(std::vector<std::uint8_t>& message, std::size_t start);

 private:
  bool reordered_ = false;  // a B slice was seen
  bool promised_ = false;
};

}  // namespace vlk::relay
