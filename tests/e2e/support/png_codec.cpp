// Encodes and decodes with libavcodec.
#include "e2e/support/png_codec.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/imgutils.h>
}

namespace vantelink_test {
namespace {

struct Freer {
  void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
  void operator()(AVFrame* frame) const { av_frame_free(&frame); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
};
template <typename Type>
using Unique = std::unique_ptr<Type, Freer>;

void require(bool good, const char* what) {
  if (!good) throw std::runtime_error(std::string("FFmpeg: ") + what);
}

}  // namespace

std::string encode_png(const PngPicture& picture) {
  const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  const Unique<AVCodecContext> context(avcodec_alloc_context3(codec));
  const Unique<AVFrame> frame(av_frame_alloc());
  const Unique<AVPacket> packet(av_packet_alloc());
  require(codec != nullptr && context && frame && packet, "there is no PNG encoder");
  frame->format = context->pix_fmt = AV_PIX_FMT_RGBA;
  frame->width = context->width = picture.width;
  frame->height = context->height = picture.height;
  context->time_base = {1, 1};
  require(avcodec_open2(context.get(), codec, nullptr) == 0, "cannot open the encoder");
  require(av_frame_get_buffer(frame.get(), 0) == 0, "no memory for the picture");
  const auto row_size = static_cast<std::size_t>(picture.width) * 4;
  for (int y = 0; y < picture.height; ++y)
    std::memcpy(frame->data[0] + std::ptrdiff_t{y} * frame->linesize[0],
                picture.pixels.data() + static_cast<std::size_t>(y) * row_size, row_size);
  require(avcodec_send_frame(context.get(), frame.get()) == 0, "the encoder refuses the picture");
  require(avcodec_receive_packet(context.get(), packet.get()) == 0, "the encoder returns no file");
  return {reinterpret_cast<const char*>(packet->data), static_cast<std::size_t>(packet->size)};
}

PngPicture decode_png(const std::string& file) {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_PNG);
  const Unique<AVCodecContext> context(avcodec_alloc_context3(codec));
  const Unique<AVFrame> frame(av_frame_alloc());
  const Unique<AVPacket> packet(av_packet_alloc());
  require(codec != nullptr && context && frame && packet, "there is no PNG decoder");
  require(avcodec_open2(context.get(), codec, nullptr) == 0, "cannot open the decoder");
  require(av_new_packet(packet.get(), static_cast<int>(file.size())) == 0, "no memory for the file");
  std::memcpy(packet->data, file.data(), file.size());
  require(avcodec_send_packet(context.get(), packet.get()) == 0, "the decoder refuses the file");
  require(avcodec_receive_frame(context.get(), frame.get()) == 0, "the decoder returns no picture");
  const bool alpha = frame->format == AV_PIX_FMT_RGBA;
  require(alpha || frame->format == AV_PIX_FMT_RGB24, "the pixels are neither RGB nor RGBA of 8 bits");
  PngPicture picture{frame->width, frame->height, {}};
  picture.pixels.reserve(static_cast<std::size_t>(frame->width) * static_cast<std::size_t>(frame->height) *
                         4);
  for (int y = 0; y < frame->height; ++y) {
    const std::uint8_t* pixel = frame->data[0] + std::ptrdiff_t{y} * frame->linesize[0];
    for (int x = 0; x < frame->width; ++x, pixel += alpha ? 4 : 3) {
      picture.pixels.append(reinterpret_cast<const char*>(pixel), 3);
      picture.pixels += alpha ? static_cast<char>(pixel[3]) : '\xFF';
    }
  }
  return picture;
}

}  // namespace vantelink_test
