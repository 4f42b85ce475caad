// Finds the units of an H.264 stream and rewrites its parameter sets.
#include "relay/stream/h264/stream.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "relay/stream/h264/bits.h"
#include "relay/stream/h264/parameter_sets.h"

namespace vlk::relay {
namespace {

using View = std::span<const std::uint8_t>;

constexpr std::size_t kStartCode = 3;  // bytes: 0, 0, 1
// The number of bytes at the start of a slice that contain its first two numbers.
constexpr std::size_t kSliceHead = 16;
constexpr std::uint32_t kBSlice = 1;  // slice_type modulo 5 of a B slice

enum UnitType : std::uint8_t { kSlice = 1, kSlicePartitionA = 2, kIdrSlice = 5, kParameterSet = 7 };

// The offset of the first start code at or after `from`. If there is none, the size of `bytes`.
std::size_t next_start_code(View bytes, std::size_t from) {
  while (from + kStartCode <= bytes.size()) {
    const auto* found =
        static_cast<const std::uint8_t*>(std::memchr(&bytes[from + 2], 1, bytes.size() - from - 2));
    if (!found) break;
    const auto one = static_cast<std::size_t>(found - bytes.data());
    if (bytes[one - 1] == 0 && bytes[one - 2] == 0) return one - 2;
    from = one - 1;
  }
  return bytes.size();
}

// A stream may begin with any number of zeros (ITU-T H.264, B.1.1).
bool begins_with_start_code(View bytes) {
  const auto first = std::ranges::find_if(bytes, [](std::uint8_t byte) { return byte != 0; });
  return first != bytes.end() && *first == 1 && first - bytes.begin() >= 2;
}

bool is_b_slice(View unit) {
  const std::uint8_t type = unit[0] & 0x1f;
  if (type != kSlice && type != kSlicePartitionA) return false;
  const Bytes head = without_emulation_bytes(unit.subspan(1, std::min(kSliceHead, unit.size() - 1)));
  BitReader reader(head);
  reader.golomb();  // first_mb_in_slice
  return reader.golomb() % 5 == kBSlice && !reader.failed();
}

// Calls `act` with the offset and the bytes of each unit. The bytes do not include trailing zeros.
template <class Act>
void each_unit(View bytes, Act act) {
  std::size_t at = next_start_code(bytes, 0);
  while (at + kStartCode < bytes.size()) {
    const std::size_t begin = at + kStartCode;
    const std::size_t next = next_start_code(bytes, begin);
    std::size_t end = next;
    while (end > begin && bytes[end - 1] == 0)
      --end;
    if (end > begin) act(begin, bytes.subspan(begin, end - begin));
    at = next;
  }
}

}  // namespace

PictureNeeds needs_of(View picture) {
  if (!begins_with_start_code(picture)) return PictureNeeds::NoStream;
  for (std::size_t at = next_start_code(picture, 0); at + kStartCode < picture.size();
       at = next_start_code(picture, at + kStartCode)) {
    const std::uint8_t type = picture[at + kStartCode] & 0x1f;
    if (type == kIdrSlice) return PictureNeeds::Nothing;
    if (type >= kSlice && type < kIdrSlice) return PictureNeeds::Earlier;
  }
  return PictureNeeds::Nothing;
}

bool H264Stream::complete(Bytes& message, std::size_t start) {
  if (start > message.size()) return true;
  const View stream = View(message).subspan(start);
  if (!begins_with_start_code(stream)) return true;
  const bool was_reordered = reordered_;
  bool has_parameter_set = false;
  each_unit(stream, [&](std::size_t, View unit) {
    if ((unit[0] & 0x1f) == kParameterSet) has_parameter_set = true;
    if (!reordered_ && is_b_slice(unit)) reordered_ = true;
  });
  if (!has_parameter_set) {
    const bool broken = promised_ && reordered_ && !was_reordered;
    return !broken;
  }

  promised_ = false;
  Bytes out(message.begin(), message.begin() + static_cast<std::ptrdiff_t>(start));
  out.reserve(message.size() + 64);
  std::size_t copied = 0;  // offset up to which `stream` was copied or replaced
  const auto copy_to = [&](std::size_t end) {
    out.insert(out.end(), stream.begin() + static_cast<std::ptrdiff_t>(copied),
               stream.begin() + static_cast<std::ptrdiff_t>(end));
    copied = end;
  };
  each_unit(stream, [&](std::size_t offset, View unit) {
    if ((unit[0] & 0x1f) != kParameterSet) return;
    const auto completed = complete_parameter_set(unit, !reordered_);
    if (!completed) return;
    promised_ = !reordered_;
    copy_to(offset);
    out.insert(out.end(), completed->begin(), completed->end());
    copied = offset + unit.size();
  });
  copy_to(stream.size());
  message = std::move(out);
  return true;
}

}  // namespace vlk::relay
