// Parses the probe's output and moves the pointer with xdotool.
#include "support/desk/desk_windows.h"

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "support/bytes/file_bytes.h"

namespace vantelink_test {
namespace {

constexpr char kProbe[] = VANTELINK_SOURCE_DIR "/build/windows/tests/probe.exe";

std::vector<std::vector<std::string>> probe_lines(const Desk& desk, std::vector<std::string> words) {
  words.insert(words.begin(), kProbe);
  std::istringstream text(desk.output(words));
  std::vector<std::vector<std::string>> lines;
  for (std::string line; std::getline(text, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::vector<std::string> fields(1);
    for (const char c : line) {
      if (c == '\t') {
        fields.emplace_back();
      } else {
        fields.back() += c;
      }
    }
    lines.push_back(std::move(fields));
  }
  return lines;
}

SeenWindow seen_window(const std::vector<std::string>& fields) {
  if (fields.size() != 15)
    throw std::runtime_error("the probe printed a window with " + std::to_string(fields.size()) +
                             " fields, not 15");
  const auto number = [&](std::size_t i) { return std::stoi(fields[i]); };
  const auto bits = [&](std::size_t i) { return static_cast<unsigned>(std::stoul(fields[i], nullptr, 16)); };
  SeenWindow window;
  window.child = number(0) != 0;
  window.type = fields[1];
  window.id = number(2);
  window.style = bits(3);
  window.extended_style = bits(4);
  window.visible = number(5) != 0;
  window.foreground = number(6) != 0;
  window.checked = number(7);
  window.left = number(8);
  window.top = number(9);
  window.width = number(10);
  window.height = number(11);
  window.screen_left = number(12);
  window.screen_top = number(13);
  window.text = fields[14];
  return window;
}

}  // namespace

std::vector<SeenWindow> windows_on(const Desk& desk, const std::vector<std::string>& types) {
  std::vector<std::string> words = {"windows"};
  words.insert(words.end(), types.begin(), types.end());
  std::vector<SeenWindow> windows;
  for (const auto& fields : probe_lines(desk, words))
    windows.push_back(seen_window(fields));
  return windows;
}

std::map<std::string, std::string> registry_of(const Desk& desk) {
  std::map<std::string, std::string> values;
  for (const auto& fields : probe_lines(desk, {"registry"}))
    values[fields.at(0)] = fields.at(2);
  return values;
}

void forget_settings(const Desk& desk) {
  probe_lines(desk, {"forget"});
}

std::string window_at(const Desk& desk, int x, int y) {
  return probe_lines(desk, {"at", std::to_string(x), std::to_string(y)}).at(0).at(0);
}

void type_into(const Desk& desk, int id, const std::string& text) {
  probe_lines(desk, {"type", std::to_string(id), text});
}

int hold_file(const Desk& desk, const std::string& path) {
  const std::string marker = desk.folder() + "/held";
  const int pid = desk.spawn({kProbe, "hold", path, marker});
  desk.host("timeout 60 bash -c \"until [ -e '" + marker + "' ]; do sleep 0.05; done\"; rm '" + marker + "'");
  return pid;
}

int spawn_without_elevation(const Desk& desk, const std::string& command_line) {
  return desk.spawn({kProbe, "lower", command_line});
}

void post(const Desk& desk, unsigned message, unsigned wparam, int lparam) {
  probe_lines(desk, {"post", std::to_string(message), std::to_string(wparam), std::to_string(lparam)});
}

void copy_to_clipboard(const Desk& desk, int format, const std::string& block) {
  const std::string path = desk.folder() + "/copied";
  std::ofstream(path, std::ios::binary) << block;
  probe_lines(desk, {"copy", std::to_string(format), path});
}

std::string clipboard_block(const Desk& desk, int format) {
  const std::string path = desk.folder() + "/pasted";
  probe_lines(desk, {"paste", std::to_string(format), path});
  return file_bytes(path);
}

void point(const Desk& desk, int x, int y) {
  desk.host("xdotool mousemove " + std::to_string(x) + ' ' + std::to_string(y));
}

void click(const Desk& desk, int x, int y, int button, int times) {
  point(desk, x, y);
  // The delay is short enough for a double click and long enough for two separate presses.
  desk.host("xdotool click --repeat " + std::to_string(times) + " --delay 60 " + std::to_string(button));
}

void click(const Desk& desk, const SeenWindow& window) {
  click(desk, window.screen_left + window.width / 2, window.screen_top + window.height / 2);
}

}  // namespace vantelink_test
