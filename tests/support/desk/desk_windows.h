// What a person sees of the windows on a desk, and what stands in the registry and on the clipboard, as
// tests/probe tells it.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/desk/desk.h"

namespace vantelink_test {

struct SeenWindow {
  bool child = false;
  std::string type;  // the window's class
  int id = 0;        // of a child
  unsigned style = 0;
  unsigned extended_style = 0;
  bool visible = false;
  bool foreground = false;
  int checked = 0;
  int left = 0, top = 0, width = 0, height = 0;  // pixels; of a child in its parent's client area
  int screen_left = 0, screen_top = 0;           // pixels of the screen
  std::string text;                              // with \t, \r and \n for what would break a line

  bool operator==(const SeenWindow&) const = default;
};

// The top-level windows of the classes from the highest down, each followed by its children.
std::vector<SeenWindow> windows_on(const Desk& desk, const std::vector<std::string>& types);

// The values of the agent's key and its autostart entry that exist: REG_SZ as text, others as bytes in hex.
std::map<std::string, std::string> registry_of(const Desk& desk);

// Deletes both, as on a machine where the agent never ran.
void forget_settings(const Desk& desk);

// The class of the top-level window at a pixel of the screen.
std::string window_at(const Desk& desk, int x, int y);

// Sets the text of one of the agent's controls.
void type_into(const Desk& desk, int id, const std::string& text);

// Keeps a file, named as Windows names it, in use until the process whose id on this host is the result is
// killed.
int hold_file(const Desk& desk, const std::string& path);

// Starts a program as a user who has not confirmed an elevation; the process id, on this host, of what waits
// for it.
int spawn_without_elevation(const Desk& desk, const std::string& command_line);

// Posts a message to the agent's window.
void post(const Desk& desk, unsigned message, unsigned wparam, int lparam);

// The clipboard as another Windows program uses it, by Windows' numbers of the formats: puts one block there
// in place of all that it held, or takes one; empty when there is none.
void copy_to_clipboard(const Desk& desk, int format, const std::string& block);
std::string clipboard_block(const Desk& desk, int format);

// The real pointer: to the pixel, and `times` clicks of a button (1 left, 3 right).
void point(const Desk& desk, int x, int y);
void click(const Desk& desk, int x, int y, int button = 1, int times = 1);
void click(const Desk& desk, const SeenWindow& window);  // in its middle

}  // namespace vantelink_test
