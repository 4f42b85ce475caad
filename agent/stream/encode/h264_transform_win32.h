// Sets up an H.264 encoder of Media Foundation when a session opens. For Windows files only.
#pragma once

#include <windows.h>
// The toolchain's codecapi.h needs strmif.h before it.
#include <strmif.h>
// This comment ends a block of includes, so that the formatter keeps the order.
#include <mfidl.h>
#include <mftransform.h>
#include <wrl/client.h>

#include <cstdint>
#include <vector>

#include "stream/encode/h264_format.h"

namespace vlk::agent {

using Microsoft::WRL::ComPtr;

void LogEncoder(const char* message, HRESULT code);

// Activates the first encoder from NV12 to H.264 that a search with the flags (MFT_ENUM_FLAG_...) finds. If
// the search finds none, `transform` is unchanged; if the activation fails, it is null. The result is false
// in both cases.
[[nodiscard]] bool ActivateEncoder(UINT32 flags, ComPtr<IMFTransform>& transform);

// Make the media types of the encoder's output and input. Null if memory runs out.
[[nodiscard]] ComPtr<IMFMediaType> MakeOutputType(const H264Format& format);
[[nodiscard]] ComPtr<IMFMediaType> MakeInputType(const H264Format& format);

// Requests a constant bit rate, low latency and a quality level. A setting that the encoder refuses is
// ignored.
void TuneEncoder(ICodecAPI& codec_api, std::int32_t bitrate);

// Asks the encoder to make the next frame a key frame.
void RequestKeyFrame(ICodecAPI& codec_api);

// Reads the parameter sets of the output type into `header`. If there are none, `header` stays unchanged.
void ReadSequenceHeader(IMFTransform& transform, std::vector<std::uint8_t>& header);

}  // namespace vlk::agent
