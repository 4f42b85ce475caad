// Parameter sets that real encoders wrote, and the results of complete_parameter_set for them.
#pragma once

#include <string>

#include "relay/base/bytes.h"

namespace vlk::relay {

inline Bytes from_hex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

struct KnownSet {
  const char* encoder;
  const char* before;
  const char* in_order;       // completed, declares that pictures are in order
  const char* order_unknown;  // completed, does not declare an order
};

// The results were checked with FFmpeg's parser (its bitstream filter trace_headers).
inline constexpr KnownSet kKnownSets[] = {
    {"x264, baseline", "6742c00cda05067e7c04400000030040000007a3c50aa8",
     "6742c00cda05067e7c05a80868320000030002000003003d1e285540",
     "6742c00cda05067e7c05a80868320000030002000003003d1e285540"},
    {"x264, high, B frames", "6764000cacd941419f9f0110000003001000000301e0f1429960",
     "6764000cacd941419f9f016a021a0c80000003008000000f078a152c",
     "6764000cacd941419f9f016a021a0c80000003008000000f078a14cb"},
    {"x264, high, with every optional field",
     "67640015ace81433f26034a0404034a0000003002000000303cc04003d08000f427258c07c50aa80",
     "67640015ace81433f26036a021a0d4a0000003002000000303cc04003d08000f427258c07c50aa80",
     "67640015ace81433f26036a021a0d4a0000003002000000303cc04003d08000f427258c07c50aa80"},
    {"x264, high 4:4:4", "67f4000c919681419f8dc044000003000400000300783c50aa80",
     "67f4000c919681419f8dc05a80868320000003002000000303c1e28554",
     "67f4000c919681419f8dc05a80868320000003002000000303c1e28554"},
    {"x264, high, ten bits", "676e000ca6cd941419f9f0110000030001000003001e0f142996",
     "676e000ca6cd941419f9f016a021a0c8000003000800000300f078a152c0",
     "676e000ca6cd941419f9f016a021a0c8000003000800000300f078a14cb0"},
    {"OpenH264, main", "674d4c148c8d40a0cbcf00f08846a0", "674d4c148c8d40a0cbcf35010d0607844235",
     "674d4c148c8d40a0cbcf35010d0607844235"},
    {"OpenH264, without fields after the size, as from many system encoders", "674d4c148c8d40a0cbce80",
     "674d4c148c8d40a0cbcf35010d0607840215", "674d4c148c8d40a0cbcf35010d0602"},
    {"x264 in GStreamer, as Wine runs it: main, with BT.709's colours",
     "674d401fd9005005bb016a02020280000003008000001e478c1924",
     "674d401fd9005005bb016a021a0c80000003008000001e478c1924",
     "674d401fd9005005bb016a021a0c80000003008000001e478c1924"},
};

}  // namespace vlk::relay
