// Looks at what an agent streams with a decoder that is not ours: what H.264 messages consist of, what they
// show, and how near that is to the scripted picture.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace vantelink_test {

using Bytes = std::vector<std::uint8_t>;

// One coded picture of a byte stream, with all that precedes it.
struct AccessUnit {
  Bytes bytes;
  bool key = false;             // an instantaneous decoder refresh
  bool parameter_sets = false;  // a sequence and a picture parameter set stand before the picture
};

// Takes a byte stream of one slice a picture apart. Throws std::runtime_error on anything else.
std::vector<AccessUnit> access_units(const Bytes& stream);

// Planes of 8-bit samples, without padding; the chroma planes have half the width and height, rounded up.
struct Picture {
  int width = 0, height = 0;
  bool full_range = false;  // as JPEG has it; otherwise 16 to 235
  Bytes y, u, v;
};

enum class VideoCodec { H264, Jpeg };

class VideoDecoder {
 public:
  explicit VideoDecoder(VideoCodec codec);
  ~VideoDecoder();
  VideoDecoder(const VideoDecoder&) = delete;
  VideoDecoder& operator=(const VideoDecoder&) = delete;

  // The picture that this access unit or file shows. Throws std::runtime_error when the decoder finds any
  // fault, or gives no picture or another than the next.
  Picture decode(const Bytes& unit);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Number that the scripted desktop wrote into its picture.
std::uint32_t number_of(const Picture& picture);

// Likeness to the scripted desktop's picture of that number on that output, in decibels over blue, green and
// red.
double likeness(const Picture& picture, std::uint32_t number, std::uint32_t output);

}  // namespace vantelink_test
