// Decodes with OpenH264, which the double's encoder comes from too.
#include "tests/windows/stream/encode/transforms/h264_decoder.h"

#include <cmath>
#include <cstddef>

#include <wels/codec_api.h>

namespace vlk::test {

std::vector<int> nal_types(const std::vector<std::uint8_t>& stream) {
  std::vector<int> types;
  for (std::size_t i = 3; i < stream.size(); ++i) {
    if (stream[i - 3] == 0 && stream[i - 2] == 0 && stream[i - 1] == 1) types.push_back(stream[i] & 0x1F);
  }
  return types;
}

H264Decoder::H264Decoder() {
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

DecodedLuma H264Decoder::decode(const std::vector<std::uint8_t>& unit) {
  std::uint8_t* planes[3] = {};
  SBufferInfo info = {};
  if (decoder_->DecodeFrameNoDelay(unit.data(), static_cast<int>(unit.size()), planes, &info) != 0) return {};
  // The decoder delays each picture for reordering, which a stream without B frames does not need.
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

void H264Decoder::Closer::operator()(ISVCDecoder* decoder) const {
  decoder->Uninitialize();
  WelsDestroyDecoder(decoder);
}

double psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  double squares = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i)
    squares += (a[i] - b[i]) * (a[i] - b[i]);
  return squares == 0 ? 100 : 10 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / squares);
}

}  // namespace vlk::test
