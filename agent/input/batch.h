// Batches of remote input: converts a message's bytes to records for the system's input call. Everything that
// depends on the platform is supplied by the caller in InputSurroundings.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace vlk::agent {

// Flags of the Windows input structures MOUSEINPUT and KEYBDINPUT, with their documented values.
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

// One input event for the system. Members that only the other kind of event uses are 0.
struct InputRecord {
  InputKind kind = InputKind::Mouse;
  std::int32_t dx = 0, dy = 0;   // 0..65535 across the virtual desktop; other values are outside it
  std::uint32_t mouse_data = 0;  // wheel amount as two's complement
  std::uint16_t vk = 0, scan = 0;
  std::uint32_t flags = 0;

  bool operator==(const InputRecord&) const = default;
};

// A rectangle in virtual-desktop pixels.
struct DesktopRect {
  std::int32_t left = 0, top = 0, width = 0, height = 0;
};

// A key event of a batch.
struct KeyEvent {
  std::uint8_t down = 0;
  std::uint16_t vk = 0, scan = 0;
  std::uint8_t ext = 0;  // 0: plain key; 2: `scan` is a UTF-16 unit; any other value: extended key
};

// The functions that ParseInputBatch calls. Each function is called for every event that needs it, so that a
// change of the display takes effect at once.
struct InputSurroundings {
  std::function<DesktopRect()> virtual_desktop;
  std::function<DesktopRect()> monitor;  // a width or height of 0 or less means that no monitor is known
  std::function<void(const KeyEvent&)> on_key;
};

// Parses the events of one payload, which must not be empty. No value if an event is unknown or incomplete:
// the whole batch is then discarded. A payload that ends between two events gives the events before its end.
[[nodiscard]] std::optional<std::vector<InputRecord>> ParseInputBatch(const unsigned char* payload,
                                                                      std::size_t length,
                                                                      const InputSurroundings& surroundings);

// Builds the event that moves the pointer to (x, y). Both coordinates range from 0 to 32767 across the
// monitor, or across the virtual desktop if no monitor is known.
[[nodiscard]] InputRecord MapPointer(std::int16_t x, std::int16_t y, const DesktopRect& desktop,
                                     const DesktopRect& monitor);

}  // namespace vlk::agent
