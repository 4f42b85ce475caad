// Splits byte streams, calls FFmpeg's decoders and compares pictures.
#include "e2e/support/video.h"

extern "C" {
#include <libavcodec/avcodec.h>
}

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "tests/doubles/scripted_picture.h"

namespace vantelink_test {
namespace {

constexpr std::uint8_t kSlice = 1, kRefreshSlice = 5, kSequenceSet = 7, kPictureSet = 8;

void require(bool condition, const char* what) {
  if (!condition) throw std::runtime_error(what);
}

// The position after the next start code; the stream's size when there is none.
std::size_t next_unit(const Bytes& stream, std::size_t from) {
  for (std::size_t i = from; i + 3 < stream.size(); ++i) {
    if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) return i + 3;
  }
  return stream.size();
}

Bytes packed(const std::uint8_t* plane, int pitch, int width, int height) {
  Bytes samples;
  samples.reserve(static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
  for (int row = 0; row < height; ++row)
    samples.insert(samples.end(), plane + row * pitch, plane + row * pitch + width);
  return samples;
}

double clamped(double sample) {
  return std::clamp(std::round(sample), 0.0, 255.0);
}

}  // namespace

std::vector<AccessUnit> access_units(const Bytes& stream) {
  std::vector<AccessUnit> units;
  bool sequence_set = false, picture_set = false, in_picture = false;
  std::size_t at = next_unit(stream, 0);
  require(at == 3 || (at == 4 && stream[0] == 0), "the stream does not begin with a start code");
  std::size_t begin = 0;       // of the access unit
  std::size_t unit_begin = 0;  // of the NAL unit with its start code
  const auto end_picture = [&](std::size_t end) {
    units.back().bytes.assign(stream.begin() + static_cast<std::ptrdiff_t>(begin),
                              stream.begin() + static_cast<std::ptrdiff_t>(end));
    sequence_set = picture_set = in_picture = false;
    begin = end;
  };
  while (at < stream.size()) {
    const std::uint8_t type = stream[at] & 0x1F;
    const bool slice = type == kSlice || type == kRefreshSlice;
    // The first bit is set when the slice's first macroblock is the picture's first.
    const bool first = slice && at + 1 < stream.size() && (stream[at + 1] & 0x80) != 0;
    if (in_picture && (!slice || first)) end_picture(unit_begin);
    sequence_set |= type == kSequenceSet;
    picture_set |= type == kPictureSet;
    if (first) {
      in_picture = true;
      units.push_back({{}, type == kRefreshSlice, sequence_set && picture_set, 0});
    }
    require(first || !slice || in_picture, "a picture's first slice is missing");
    if (slice) ++units.back().slices;
    at = next_unit(stream, at);
    // A zero before the start code is part of it: start codes have three or four bytes.
    unit_begin = at == stream.size() ? at : at - 3;
    if (unit_begin < stream.size() && stream[unit_begin - 1] == 0) --unit_begin;
  }
  require(in_picture, "there are bytes after the last picture");
  end_picture(stream.size());
  return units;
}

struct VideoDecoder::State {
  AVCodecContext* context = nullptr;
  AVPacket* packet = nullptr;
  AVFrame* frame = nullptr;
};

VideoDecoder::VideoDecoder(VideoCodec codec) : state_(std::make_unique<State>()) {
  const AVCodec* const decoder =
      avcodec_find_decoder(codec == VideoCodec::H264 ? AV_CODEC_ID_H264 : AV_CODEC_ID_MJPEG);
  require(decoder != nullptr, "FFmpeg does not have the decoder");
  state_->context = avcodec_alloc_context3(decoder);
  state_->context->thread_count = 1;
  state_->context->flags |= AV_CODEC_FLAG_LOW_DELAY;
  state_->context->err_recognition = AV_EF_EXPLODE;
  require(avcodec_open2(state_->context, decoder, nullptr) == 0, "FFmpeg cannot open the decoder");
  state_->packet = av_packet_alloc();
  state_->frame = av_frame_alloc();
}

VideoDecoder::~VideoDecoder() {
  av_frame_free(&state_->frame);
  av_packet_free(&state_->packet);
  avcodec_free_context(&state_->context);
}

Picture VideoDecoder::decode(const Bytes& unit) {
  Bytes padded = unit;
  padded.resize(unit.size() + AV_INPUT_BUFFER_PADDING_SIZE);
  state_->packet->data = padded.data();
  state_->packet->size = static_cast<int>(unit.size());
  require(avcodec_send_packet(state_->context, state_->packet) == 0, "the decoder refuses the data");
  const AVFrame& frame = *state_->frame;
  require(avcodec_receive_frame(state_->context, state_->frame) == 0, "the decoder returns no picture");
  require(frame.decode_error_flags == 0, "the decoder concealed an error");
  require(frame.format == AV_PIX_FMT_YUV420P || frame.format == AV_PIX_FMT_YUVJ420P,
          "the picture is not 4:2:0");
  Picture picture;
  picture.width = frame.width;
  picture.height = frame.height;
  picture.full_range = frame.format == AV_PIX_FMT_YUVJ420P;
  const int half_width = (frame.width + 1) / 2, half_height = (frame.height + 1) / 2;
  picture.y = packed(frame.data[0], frame.linesize[0], frame.width, frame.height);
  picture.u = packed(frame.data[1], frame.linesize[1], half_width, half_height);
  picture.v = packed(frame.data[2], frame.linesize[2], half_width, half_height);
  return picture;
}

std::uint32_t number_of(const Picture& picture) {
  require(picture.width >= static_cast<int>(vantelink_doubles::kSquare * vantelink_doubles::kNumberBits),
          "the picture is too narrow for a number");
  return vantelink_doubles::read_number(picture.y.data(), static_cast<std::size_t>(picture.width));
}

namespace {

// Means over all pixels and channels.
struct Difference {
  double squares = 0;  // of the squared differences
  double levels = 0;   // of the absolute differences
};

// `expected` returns the expected level of a channel, 0 blue to 2 red, of the pixel in a column and a row.
template <typename Expected>
Difference difference(const Picture& picture, Expected expected) {
  const auto width = static_cast<std::size_t>(picture.width),
             height = static_cast<std::size_t>(picture.height);
  const double floor = picture.full_range ? 0 : 16;
  const double luma_gain = picture.full_range ? 1 : 255.0 / 219,
               chroma_gain = picture.full_range ? 1 : 255.0 / 224;
  Difference sum;
  for (std::size_t row = 0; row < height; ++row) {
    for (std::size_t column = 0; column < width; ++column) {
      const std::size_t chroma = row / 2 * ((width + 1) / 2) + column / 2;
      const double y = (picture.y[row * width + column] - floor) * luma_gain;
      const double u = (picture.u[chroma] - 128.0) * chroma_gain,
                   v = (picture.v[chroma] - 128.0) * chroma_gain;
      // BT.601.
      const double shown[] = {clamped(y + 1.772 * u), clamped(y - 0.344136 * u - 0.714136 * v),
                              clamped(y + 1.402 * v)};
      for (std::size_t channel = 0; channel < 3; ++channel) {
        const double error = shown[channel] - expected(column, row, channel);
        sum.squares += error * error;
        sum.levels += std::abs(error);
      }
    }
  }
  const double samples = 3.0 * static_cast<double>(width * height);
  return {sum.squares / samples, sum.levels / samples};
}

Difference difference_from(const Picture& picture, const PngPicture& screen) {
  require(picture.width <= screen.width && picture.height <= screen.height,
          "the picture is larger than the screen");
  const auto screen_width = static_cast<std::size_t>(screen.width);
  return difference(picture, [&](std::size_t column, std::size_t row, std::size_t channel) {
    return static_cast<std::uint8_t>(screen.pixels[(row * screen_width + column) * 4 + 2 - channel]);
  });
}

double decibels(double mean_square) {
  return mean_square == 0 ? 100 : 10 * std::log10(255.0 * 255.0 / mean_square);
}

}  // namespace

double similarity(const Picture& picture, std::uint32_t number, std::uint32_t output) {
  const auto width = static_cast<std::size_t>(picture.width),
             height = static_cast<std::size_t>(picture.height);
  Bytes expected(width * height * 4);
  vantelink_doubles::paint_picture(expected.data(), static_cast<std::uint32_t>(width),
                                   static_cast<std::uint32_t>(height), width * 4, number, output);
  return decibels(difference(picture, [&](std::size_t column, std::size_t row, std::size_t channel) {
                    return expected[(row * width + column) * 4 + channel];
                  }).squares);
}

double similarity(const Picture& picture, const PngPicture& screen) {
  return decibels(difference_from(picture, screen).squares);
}

double mean_error(const Picture& picture, const PngPicture& screen) {
  return difference_from(picture, screen).levels;
}

}  // namespace vantelink_test
