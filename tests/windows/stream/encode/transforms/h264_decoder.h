// Reads H.264 byte streams back: their NAL units and their pictures.
#pragma once

#include <cmath>
#include <cstdint>
#include <memory>
#include <vector>

#include <wels/codec_api.h>

namespace vlk::test {

// NAL unit types as H.264, table 7-1, numbers them.
constexpr int kSlice = 1, kKeySlice = 5, kSequenceSet = 7, kPictureSet = 8;

// Types of all NAL units, in order.
inline std::vector<int> nal_types(const std::vector<std::uint8_t>& stream) {
  std::vector<int> types;
  for (std::size_t i = 3; i < stream.size(); ++i) {
    if (stream[i - 3] == 0 && stream[i - 2] == 0 && stream[i - 1] == 1) types.push_back(stream[i] & 0x1F);
  }
  return types;
}

struct DecodedLuma {
  std::int32_t width = 0, height = 0;
  std::vector<std::uint8_t> rows;  // without padding
};

// Decodes one call's worth of stream at a time, and forgives nothing.
class H264Decoder {
 public:
  H264Decoder() {
    ISVCDecoder* decoder = nullptr;
    WelsCreateDecoder(&decoder);
    decoder_.reset(decoder);
    int quiet = WELS_LOG_QUIET;
    decoder_->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
    SDecodingParam wanted = {};
    wanted.eEcActiveIdc = ERROR_CON_DISABLE;
    wanted.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
    decoder_->Initialize(&wanted);
  }

  // Empty when the bytes have a fault or no picture.
  DecodedLuma decode(const std::vector<std::uint8_t>& unit) {
    std::uint8_t* planes[3] = {};
    SBufferInfo info = {};
    if (decoder_->DecodeFrameNoDelay(unit.data(), static_cast<int>(unit.size()), planes, &info) != 0)
      return {};
    // A stream without B frames needs no reordering, but the decoder holds each picture back for it.
    if (info.iBufferStatus != 1 && decoder_->FlushFrame(planes, &info) != 0) return {};
    if (info.iBufferStatus != 1) return {};
    const SSysMEMBuffer& memory = info.UsrData.sSystemBuffer;
    DecodedLuma luma{memory.iWidth, memory.iHeight, {}};
    for (int y = 0; y < memory.iHeight; ++y) {
      const std::uint8_t* const row = planes[0] + std::ptrdiff_t{y} * memory.iStride[0];
      luma.rows.insert(luma.rows.end(), row, row + memory.iWidth);
    }
    return luma;
  }

 private:
  struct Closer {
    void operator()(ISVCDecoder* decoder) const {
      decoder->Uninitialize();
      WelsDestroyDecoder(decoder);
    }
  };
  std::unique_ptr<ISVCDecoder, Closer> decoder_;
};

// Likeness in decibels of two planes of equal size.
inline double likeness(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  double squares = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
    squares += (a[i] - b[i]) * (a[i] - b[i]);
  return squares == 0 ? 100 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / squares);
}

}  // namespace vlk::test
