// Sets up an H.264 encoder of Media Foundation when a session opens. Included by _win32.cpp files alone.
#pragma once

#include <windows.h>
// The toolchain's codecapi.h needs strmif.h before it.
#include <strmif.h>
// This comment ends a block of includes, so that the formatter keeps the order.
#include <cstdint>
#include <vector>

#include "stream/encode/h264_format.h"

#include <mfidl.h>
#include <mftransform.h>
#include <wrl/client.h>

namespace vlk::agent {

using Microsoft::WRL::ComPtr;

void LogEncoder(const char* message, HRESULT code);

// Activates the first encoder from NV12 to H.264 that a search with the flags (MFT_ENUM_FLAG_...) finds. If
// the search finds none, `transform` is unchanged; if the activation fails, it is null. Both give false.
[[nodiscard]] bool ActivateEncoder(UINT32 flags, ComPtr<IMFTransform>& transform);

// Null without memory.
[[nodiscard]] ComPtr<IMFMediaType> MakeOutputType(const H264Format& format);
[[nodiscard]] ComPtr<IMFMediaType> MakeInputType(const H264Format& format);

// Requests a constant bit rate and low latency. An encoder may refuse either; a failure is ignored.
void TuneEncoder(ICodecAPI& codec_api, std::int32_t bitrate);

// Asks the encoder to make the next frame a key frame.
void RequestKeyFrame(ICodecAPI& codec_api);

// Reads the parameter sets of the output type into `header`. Without any, `header` is unchanged.
void ReadSequenceHeader(IMFTransform& transform, std::vector<std::uint8_t>& header);

}  // namespace vlk::agent
