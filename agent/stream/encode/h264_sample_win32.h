// Media Foundation samples to and from plain bytes. Included by _win32.cpp files alone.
#pragma once

#include <cstdint>
#include <vector>

#include <mfobjects.h>
#include <wrl/client.h>

namespace vlk::agent {

// A sample with one empty buffer of `size` bytes. Where memory is short the buffer is missing, or the sample
// (null); the encoder then refuses it.
Microsoft::WRL::ComPtr<IMFSample> MakeEmptySample(DWORD size);

// A sample with a copy of the first `size` of the bytes, at a time, for a duration, both in units of 100 ns.
Microsoft::WRL::ComPtr<IMFSample> MakeFilledSample(const std::uint8_t* bytes, DWORD size, LONGLONG time,
                                                   LONGLONG duration);

// Appends a sample's bytes, with `header` in front of them when the sample is a clean point.
void AppendSample(IMFSample& sample, const std::vector<std::uint8_t>& header, std::vector<std::uint8_t>& out);

}  // namespace vlk::agent
