// Reads and changes the windows, registry and clipboard of a desk through tests/probe, and moves and clicks
// its mouse.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/desk/desk.h"

namespace vantelink_test {

struct SeenWindow {
  bool child = false;
  std::string type;  // the window's class
  int id = 0;        // the control id of a child window
  unsigned style = 0;
  unsigned extended_style = 0;
  bool visible = false;
  bool foreground = false;
  int checked = 0;
  int left = 0, top = 0, width = 0, height = 0;  // pixels; a child's are relative to its parent's client area
  int screen_left = 0, screen_top = 0;           // pixels on the screen
  std::string text;                              // tabs and line ends are escaped: \t, \r, \n

  bool operator==(const SeenWindow&) const = default;
};

// The top-level windows of these classes, the topmost first, each followed by its children.
std::vector<SeenWindow> windows_on(const Desk& desk, const std::vector<std::string>& types);

// The values of the agent's key, and its autostart entry if there is one: REG_SZ as text, other types as
// bytes in hexadecimal.
std::map<std::string, std::string> registry_of(const Desk& desk);

// Deletes the agent's key and its autostart entry, so that the machine is as if the agent had never run.
void forget_settings(const Desk& desk);

// The class of the top-level window at a pixel of the screen.
std::string window_at(const Desk& desk, int x, int y);

// Sets the text of one of the agent's controls.
void type_into(const Desk& desk, int id, const std::string& text);

// Opens a file without sharing it. The file stays open until the process whose id on this host is returned is
// killed. `path` is a Windows path.
int hold_file(const Desk& desk, const std::string& path);

// Starts a program without administrator's rights; returns the process id, on this host, of the process that
// waits for it.
int spawn_without_elevation(const Desk& desk, const std::string& command_line);

// Posts a message to the agent's window.
void post(const Desk& desk, unsigned message, unsigned wparam, int lparam);

// Copies to and reads the clipboard from another Windows program, the probe. `format` is the number that
// Windows gives a clipboard format. Copying replaces everything on the clipboard. Reading a format that is
// not on the clipboard returns an empty block.
void copy_to_clipboard(const Desk& desk, int format, const std::string& block);
std::string clipboard_block(const Desk& desk, int format);

// Real mouse events: moves the pointer to a pixel, or clicks there. Buttons: 1 left, 3 right.
void point(const Desk& desk, int x, int y);
void click(const Desk& desk, int x, int y, int button = 1, int times = 1);
void click(const Desk& desk, const SeenWindow& window);  // clicks the middle of the window

}  // namespace vantelink_test
