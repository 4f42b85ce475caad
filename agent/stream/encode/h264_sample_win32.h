// Converts between Media Foundation samples and bytes. Included by _win32.cpp files alone.
#pragma once

#include <cstdint>
#include <vector>

#include <mfobjects.h>
#include <wrl/client.h>

namespace vlk::agent {

// A sample with one empty buffer of `size` bytes. Without memory the sample is null or has no buffer; the
// encoder then refuses it.
[[nodiscard]] Microsoft::WRL::ComPtr<IMFSample> MakeEmptySample(DWORD size);

// A sample with a copy of the first `size` bytes. `time` and `duration` are in units of 100 ns.
[[nodiscard]] Microsoft::WRL::ComPtr<IMFSample> MakeFilledSample(const std::uint8_t* bytes, DWORD size,
                                                                 LONGLONG time, LONGLONG duration);

// Appends a sample's bytes to `out`, after `header` if the sample is a clean point.
void AppendSample(IMFSample& sample, const std::vector<std::uint8_t>& header, std::vector<std::uint8_t>& out);

}  // namespace vlk::agent
