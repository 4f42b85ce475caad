// A session of the real encoder with low-latency settings: no look-ahead, no reordering, and key frames only
// on request.
#include "tests/doubles/h264/engine.h"

#include <wels/codec_api.h>

namespace vantelink_doubles {
namespace {

constexpr std::int64_t kMillisecondsPerSecond = 1000;

struct EncoderCloser {
  void operator()(ISVCEncoder* encoder) const {
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
  }
};

void append_layer(const SLayerBSInfo& layer, Bytes& bytes) {
  int size = 0;
  for (int i = 0; i < layer.iNalCount; ++i)
    size += layer.pNalLengthInByte[i];
  bytes.insert(bytes.end(), layer.pBsBuf, layer.pBsBuf + size);
}

SEncParamExt parameters(ISVCEncoder& encoder, const EngineFormat& format) {
  SEncParamExt wanted = {};
  encoder.GetDefaultParams(&wanted);
  wanted.iUsageType = CAMERA_VIDEO_REAL_TIME;
  wanted.iPicWidth = format.width;
  wanted.iPicHeight = format.height;
  wanted.iTargetBitrate = format.bitrate;
  wanted.iMaxBitrate = UNSPECIFIED_BIT_RATE;
  wanted.iRCMode = RC_BITRATE_MODE;
  wanted.fMaxFrameRate = static_cast<float>(format.fps);
  wanted.iComplexityMode = LOW_COMPLEXITY;
  wanted.uiIntraPeriod = 0;
  wanted.eSpsPpsIdStrategy = CONSTANT_ID;
  wanted.bEnableFrameSkip = false;
  // With scene detection, a frame with many changes would become a key frame without a request.
  wanted.bEnableSceneChangeDetect = false;
  wanted.iMultipleThreadIdc = 1;
  SSpatialLayerConfig& layer = wanted.sSpatialLayers[0];
  layer.uiProfileIdc = PRO_MAIN;
  layer.iVideoWidth = format.width;
  layer.iVideoHeight = format.height;
  layer.fFrameRate = wanted.fMaxFrameRate;
  layer.iSpatialBitrate = format.bitrate;
  layer.iMaxSpatialBitrate = UNSPECIFIED_BIT_RATE;
  if (format.slices > 1) {
    layer.sSliceArgument.uiSliceMode = SM_FIXEDSLCNUM_SLICE;
    layer.sSliceArgument.uiSliceNum = static_cast<unsigned>(format.slices);
  }
  return wanted;
}

}  // namespace

struct Engine::State {
  std::unique_ptr<ISVCEncoder, EncoderCloser> encoder;
  bool opened = false;
  EngineFormat format;
  std::int64_t frames = 0;
  Bytes parameter_sets;
  Bytes planar;  // the U plane and then the V plane, as the encoder needs them
};

Engine::Engine(const EngineFormat& format) : state_(std::make_unique<State>()) {
  state_->format = format;
  ISVCEncoder* encoder = nullptr;
  if (WelsCreateSVCEncoder(&encoder) != 0) return;
  state_->encoder.reset(encoder);
  int quiet = WELS_LOG_QUIET;
  encoder->SetOption(ENCODER_OPTION_TRACE_LEVEL, &quiet);
  const SEncParamExt wanted = parameters(*encoder, format);
  if (encoder->InitializeExt(&wanted) != 0) return;
  SFrameBSInfo info = {};
  if (encoder->EncodeParameterSets(&info) != 0) return;
  for (int i = 0; i < info.iLayerNum; ++i)
    append_layer(info.sLayerInfo[i], state_->parameter_sets);
  state_->planar.resize(static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height) / 2);
  state_->opened = true;
}

Engine::~Engine() = default;

bool Engine::opened() const {
  return state_->opened;
}

const Bytes& Engine::parameter_sets() const {
  return state_->parameter_sets;
}

EncodedFrame Engine::encode(const std::uint8_t* nv12, bool force_key) {
  const EngineFormat& format = state_->format;
  const auto luma_size = static_cast<std::size_t>(format.width) * static_cast<std::size_t>(format.height);
  std::uint8_t* const u = state_->planar.data();
  std::uint8_t* const v = u + luma_size / 4;
  for (std::size_t i = 0; i < luma_size / 4; ++i) {
    u[i] = nv12[luma_size + 2 * i];
    v[i] = nv12[luma_size + 2 * i + 1];
  }
  SSourcePicture picture = {};
  picture.iColorFormat = videoFormatI420;
  picture.iPicWidth = format.width;
  picture.iPicHeight = format.height;
  picture.iStride[0] = format.width;
  picture.iStride[1] = picture.iStride[2] = format.width / 2;
  picture.pData[0] = const_cast<std::uint8_t*>(nv12);
  picture.pData[1] = u;
  picture.pData[2] = v;
  picture.uiTimeStamp = state_->frames++ * kMillisecondsPerSecond / format.fps;
  if (force_key) state_->encoder->ForceIntraFrame(true);

  SFrameBSInfo info = {};
  EncodedFrame frame;
  if (state_->encoder->EncodeFrame(&picture, &info) != 0) return frame;
  frame.key = info.eFrameType == videoFrameTypeIDR;
  for (int i = 0; i < info.iLayerNum; ++i) {
    const SLayerBSInfo& layer = info.sLayerInfo[i];
    if (layer.uiLayerType == NON_VIDEO_CODING_LAYER && !format.parameter_sets_in_stream) continue;
    append_layer(layer, frame.bytes);
  }
  return frame;
}

}  // namespace vantelink_doubles
