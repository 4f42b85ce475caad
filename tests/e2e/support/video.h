// Examines the streamed video with FFmpeg's decoders: the structure of H.264 messages, the pictures in them,
// and how similar these pictures are to the pictures of the scripted desktop.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "e2e/support/png_codec.h"

namespace vantelink_test {

using Bytes = std::vector<std::uint8_t>;

// One coded picture of a byte stream, with the NAL units that precede it.
struct AccessUnit {
  Bytes bytes;
  bool key = false;             // the picture is an instantaneous decoder refresh
  bool parameter_sets = false;  // a sequence and a picture parameter set precede the picture
  int slices = 0;
};

// Splits a byte stream. Throws std::runtime_error unless it begins with a start code and ends with a picture.
std::vector<AccessUnit> access_units(const Bytes& stream);

// Planes of 8-bit samples, without padding; the chroma planes have half the width and height, rounded up.
struct Picture {
  int width = 0, height = 0;
  bool full_range = false;  // luma from 0 to 255, as in JPEG, instead of 16 to 235
  Bytes y, u, v;
};

enum class VideoCodec { H264, Jpeg };

class VideoDecoder {
 public:
  explicit VideoDecoder(VideoCodec codec);
  ~VideoDecoder();
  VideoDecoder(const VideoDecoder&) = delete;
  VideoDecoder& operator=(const VideoDecoder&) = delete;

  // Decodes an access unit or a JPEG file. Throws std::runtime_error when the decoder reports an error or
  // returns no picture at once.
  Picture decode(const Bytes& unit);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// The number that the scripted desktop wrote into its picture.
std::uint32_t number_of(const Picture& picture);

// The picture's similarity to the scripted desktop's picture with that number on that output: the peak
// signal-to-noise ratio over blue, green and red, in decibels.
double similarity(const Picture& picture, std::uint32_t number, std::uint32_t output);

// The mean difference from the top left part of a picture of the screen, over all pixels and over blue, green
// and red, in levels.
double mean_error(const Picture& picture, const PngPicture& screen);

// The picture's similarity to the top left part of a picture of the screen: the peak signal-to-noise ratio
// over blue, green and red, in decibels, and at most 100.
double similarity(const Picture& picture, const PngPicture& screen);

}  // namespace vantelink_test
