// The NAL units that surround the pictures, as the board asks for them.
#include "tests/doubles/h264/byte_stream.h"

#include <algorithm>
#include <iterator>

#include "tests/doubles/h264/transform.h"

namespace vantelink_doubles {
namespace {

// An access unit delimiter (NAL type 9) that allows I and P slices, and an SEI message (NAL type 6) that
// contains 16 bytes of identifier and one byte of user data (H.264, 7.3.2.4 and D.1.7).
constexpr std::uint8_t kDelimiters[] = {0,    0,    0,    1,    0x09, 0x30, 0,    0,    0,    1,    0x06,
                                        0x05, 0x11, 0xA1, 0xA2, 0xA3, 0xA4, 0xA5, 0xA6, 0xA7, 0xA8, 0xA9,
                                        0xAA, 0xAB, 0xAC, 0xAD, 0xAE, 0xAF, 0xB0, 0x42, 0x80};

LateHeader late_header() {
  return static_cast<LateHeader>(codec_board().late_header.load());
}

}  // namespace

bool header_in_stream() {
  return codec_board().no_header != 0 || late_header() == LateHeader::InStream;
}

bool header_in_first_type() {
  return codec_board().no_header == 0 && late_header() == LateHeader::None;
}

Bytes sequence_header(const Bytes& parameter_sets) {
  Bytes header = parameter_sets;
  const auto wanted = static_cast<std::size_t>(codec_board().header_bytes);
  if (wanted <= header.size()) return header;
  const std::uint8_t filler[] = {0, 0, 0, 1, 12};
  header.insert(header.end(), filler, filler + sizeof(filler));
  header.resize(wanted, 0xFF);
  header.push_back(0x80);
  return header;
}

void add_delimiters(Bytes& picture) {
  if (codec_board().delimiters == 0 || picture.empty()) return;
  picture.insert(picture.begin(), std::begin(kDelimiters), std::end(kDelimiters));
}

}  // namespace vantelink_doubles
