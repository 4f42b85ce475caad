// Decodes H.264 byte streams to their NAL units and pictures.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

class ISVCDecoder;

namespace vlk::test {

// NAL unit types of H.264, table 7-1.
constexpr int kSlice = 1, kKeySlice = 5, kInformation = 6, kSequenceSet = 7, kPictureSet = 8, kDelimiter = 9;

// Types of all NAL units, in order.
std::vector<int> nal_types(const std::vector<std::uint8_t>& stream);

struct DecodedLuma {
  std::int32_t width = 0, height = 0;
  std::vector<std::uint8_t> rows;  // without padding
};

// Decodes the stream of one frame at a time, with error concealment off.
class H264Decoder {
 public:
  H264Decoder();

  // Decodes the bytes of one frame. The result is empty if they have an error or contain no picture.
  DecodedLuma decode(const std::vector<std::uint8_t>& unit);

 private:
  struct Closer {
    void operator()(ISVCDecoder* decoder) const;
  };
  std::unique_ptr<ISVCDecoder, Closer> decoder_;
};

// Peak signal-to-noise ratio of two planes of equal size, in decibels; 100 if they are equal.
double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

}  // namespace vlk::test
