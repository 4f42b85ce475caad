// Batches of remote input: from the wire's bytes to records that hold what the system's own input call takes.
// Needs nothing of the platform but the virtual desktop's metrics.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace vlk::agent {

// Flags of the Windows input structures MOUSEINPUT and KEYBDINPUT, under their documented values.
inline constexpr std::uint32_t kMouseMove = 0x0001;
inline constexpr std::uint32_t kMouseLeftDown = 0x0002;
inline constexpr std::uint32_t kMouseLeftUp = 0x0004;
inline constexpr std::uint32_t kMouseRightDown = 0x0008;
inline constexpr std::uint32_t kMouseRightUp = 0x0010;
inline constexpr std::uint32_t kMouseMiddleDown = 0x0020;
inline constexpr std::uint32_t kMouseMiddleUp = 0x0040;
inline constexpr std::uint32_t kMouseWheel = 0x0800;
inline constexpr std::uint32_t kMouseVirtualDesk = 0x4000;
inline constexpr std::uint32_t kMouseAbsolute = 0x8000;
inline constexpr std::uint32_t kKeyExtended = 0x0001;
inline constexpr std::uint32_t kKeyUp = 0x0002;
inline constexpr std::uint32_t kKeyUnicode = 0x0004;

enum class InputKind : std::uint8_t { Mouse, Keyboard };

// One record for the system. Members of the other kind are 0, as are time and extra information.
struct InputRecord {
  InputKind kind = InputKind::Mouse;
  std::int32_t dx = 0, dy = 0;   // 0..65535 over the virtual desktop, beyond it when the wire asks for that
  std::uint32_t mouse_data = 0;  // wheel amount, two's complement
  std::uint16_t vk = 0, scan = 0;
  std::uint32_t flags = 0;

  bool operator==(const InputRecord&) const = default;
};

// Virtual-desktop pixels.
struct DesktopRect {
  std::int32_t left = 0, top = 0, width = 0, height = 0;
};

// A key event as the wire holds it.
struct KeyEvent {
  std::uint8_t down = 0;
  std::uint16_t vk = 0, scan = 0;
  std::uint8_t ext = 0;  // 0 plain, 2 one UTF-16 unit in `scan`, anything else an extended key
};

// What parsing asks of its surroundings; each is called anew for every event concerned, so that a change of
// the display takes effect at once.
struct InputSurroundings {
  std::function<DesktopRect()> virtual_desktop;
  std::function<DesktopRect()> monitor;  // a width or height of 0 or less: none is known
  std::function<void(const KeyEvent&)> on_key;
};

// The records of one non-empty payload, in wire order, or nothing when an event is unknown or cut short: then
// the whole batch is discarded. A payload that ends between two events gives those before its end.
std::optional<std::vector<InputRecord>> ParseInputBatch(const unsigned char* payload, std::size_t length,
                                                        const InputSurroundings& surroundings);

// A pointer move to (x, y), which run from 0 to 32767 over the monitor, or over the virtual desktop when no
// monitor is known.
InputRecord MapPointer(std::int16_t x, std::int16_t y, const DesktopRect& desktop,
                       const DesktopRect& monitor);

}  // namespace vlk::agent
