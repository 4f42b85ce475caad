// Parses input batches and maps pointer positions. Numbers in a batch are little-endian.
#include "input/batch.h"

#include <algorithm>
#include <limits>

namespace vlk::agent {
namespace {

constexpr std::uint8_t kMoveEvent = 1;
constexpr std::uint8_t kButtonEvent = 2;
constexpr std::uint8_t kWheelEvent = 3;
constexpr std::uint8_t kKeyEvent = 4;
constexpr std::uint8_t kUnicodeKey = 2;   // value of `ext` for a UTF-16 unit
constexpr double kWireRange = 32767.0;    // position of the last pixel column or row in a batch
constexpr double kSystemRange = 65535.0;  // position of the last pixel column or row for the system

// Bytes of an event, including its type; 0 for an unknown type.
std::size_t event_length(std::uint8_t type) {
  switch (type) {
    case kMoveEvent:
      return 5;
    case kButtonEvent:
      return 3;
    case kWheelEvent:
      return 3;
    case kKeyEvent:
      return 7;
    default:
      return 0;
  }
}

std::uint16_t get_u16_le(const unsigned char* in) {
  return static_cast<std::uint16_t>(in[0] | in[1] << 8);
}

std::int16_t get_i16_le(const unsigned char* in) {
  return static_cast<std::int16_t>(get_u16_le(in));
}

// Converts as the processor does: rounds toward zero, and gives the smallest integer if the number does not
// fit.
std::int32_t truncate(double value) {
  constexpr double kLimit = 2147483648.0;
  if (!(value > -kLimit - 1.0 && value < kLimit)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

std::uint32_t button_flags(std::uint8_t button, bool pressed) {
  switch (button) {
    case 1:
      return pressed ? kMouseLeftDown : kMouseLeftUp;
    case 2:
      return pressed ? kMouseRightDown : kMouseRightUp;
    case 3:
      return pressed ? kMouseMiddleDown : kMouseMiddleUp;
    default:
      return 0;
  }
}

InputRecord key_record(const KeyEvent& event) {
  InputRecord record;
  record.kind = InputKind::Keyboard;
  record.scan = event.scan;
  if (event.ext == kUnicodeKey) {
    record.flags = kKeyUnicode;
  } else {
    record.vk = event.vk;
    record.flags = event.ext != 0 ? kKeyExtended : 0;
  }
  if (event.down == 0) record.flags |= kKeyUp;
  return record;
}

}  // namespace

InputRecord MapPointer(std::int16_t x, std::int16_t y, const DesktopRect& desktop,
                       const DesktopRect& monitor) {
  const double desktop_width = std::max(desktop.width, 1);
  const double desktop_height = std::max(desktop.height, 1);
  double px, py;
  if (monitor.width > 0 && monitor.height > 0) {
    px = (static_cast<double>(monitor.width) - 1) * x / kWireRange + monitor.left;
    py = (static_cast<double>(monitor.height) - 1) * y / kWireRange + monitor.top;
  } else {
    px = (desktop_width - 1) * x / kWireRange + desktop.left;
    py = (desktop_height - 1) * y / kWireRange + desktop.top;
  }
  InputRecord record;
  record.dx = truncate((px - desktop.left) * kSystemRange / std::max(desktop_width - 1, 1.0));
  record.dy = truncate((py - desktop.top) * kSystemRange / std::max(desktop_height - 1, 1.0));
  record.flags = kMouseMove | kMouseVirtualDesk | kMouseAbsolute;
  return record;
}

std::optional<std::vector<InputRecord>> ParseInputBatch(const unsigned char* payload, std::size_t length,
                                                        const InputSurroundings& surroundings) {
  const std::uint8_t count = payload[0];
  std::vector<InputRecord> records;
  records.reserve(count);
  std::size_t position = 1;
  for (int i = 0; i < count && position < length; ++i) {
    const unsigned char* const event = payload + position;
    const std::size_t size = event_length(event[0]);
    if (size == 0 || length - position < size) return std::nullopt;
    position += size;
    switch (event[0]) {
      case kMoveEvent: {
        const DesktopRect desktop = surroundings.virtual_desktop();
        records.push_back(
            MapPointer(get_i16_le(event + 1), get_i16_le(event + 3), desktop, surroundings.monitor()));
        break;
      }
      case kButtonEvent: {
        const std::uint32_t flags = button_flags(event[1], event[2] != 0);
        if (flags != 0) records.push_back({.flags = flags});
        break;
      }
      case kWheelEvent:
        records.push_back({.mouse_data = static_cast<std::uint32_t>(std::int32_t{get_i16_le(event + 1)}),
                           .flags = kMouseWheel});
        break;
      case kKeyEvent: {
        const KeyEvent key{event[1], get_u16_le(event + 2), get_u16_le(event + 4), event[6]};
        surroundings.on_key(key);
        records.push_back(key_record(key));
        break;
      }
      default:  // not reached: event_length accepts only the types above
        break;
    }
  }
  return records;
}

}  // namespace vlk::agent
