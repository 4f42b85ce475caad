// Converts between Media Foundation samples and bytes. For Windows files only.
#pragma once

#include <mfobjects.h>
#include <wrl/client.h>

#include <cstdint>
#include <vector>

namespace vlk::agent {

// Makes a sample with one empty buffer of `size` bytes. If memory runs out, the sample is null or has no
// buffer; the encoder then refuses it.
[[nodiscard]] Microsoft::WRL::ComPtr<IMFSample> MakeEmptySample(DWORD size);

// Makes a sample with a copy of the first `size` bytes at `bytes`. `time` and `duration` are in units of 100
// ns.
[[nodiscard]] Microsoft::WRL::ComPtr<IMFSample> MakeFilledSample(const std::uint8_t* bytes, DWORD size,
                                                                 LONGLONG time, LONGLONG duration);

// Appends a sample's bytes to `out`. If the sample is a clean point (a key frame), appends `header` first.
void AppendSample(IMFSample& sample, const std::vector<std::uint8_t>& header, std::vector<std::uint8_t>& out);

}  // namespace vlk::agent
