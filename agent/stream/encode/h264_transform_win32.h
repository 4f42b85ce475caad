// What an H.264 session asks of Media Foundation once, when it opens. Included by _win32.cpp files alone.
#pragma once

#include <windows.h>
// The toolchain's codecapi.h needs strmif.h before it.
#include <strmif.h>
// Ends a block, so that the order stays.
#include <cstdint>
#include <vector>

#include "stream/encode/h264_format.h"

#include <mfidl.h>
#include <mftransform.h>
#include <wrl/client.h>

namespace vlk::agent {

using Microsoft::WRL::ComPtr;

void LogEncoder(const char* message, HRESULT code);

// Activates the first encoder from NV12 to H.264 that the flags (MFT_ENUM_FLAG_...) find. An earlier
// transform is let go only when there is one to activate; false leaves none or the earlier one.
bool ActivateEncoder(UINT32 flags, ComPtr<IMFTransform>& transform);

// Null when memory is short.
ComPtr<IMFMediaType> MakeOutputType(const H264Format& format);
ComPtr<IMFMediaType> MakeInputType(const H264Format& format);

// Constant bit rate, low latency. An encoder may refuse any of it; nobody looks.
void TuneEncoder(ICodecAPI& codec_api, std::int32_t bitrate);

// Makes the next frame a key frame, if the encoder will.
void RequestKeyFrame(ICodecAPI& codec_api);

// The parameter sets of the output type. Without any `header` stays as it is.
void ReadSequenceHeader(IMFTransform& transform, std::vector<std::uint8_t>& header);

}  // namespace vlk::agent
