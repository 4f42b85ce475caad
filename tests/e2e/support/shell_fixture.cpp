// Reads and operates windows through the probe.
#include "e2e/support/shell_fixture.h"

#include <stdexcept>

namespace vantelink_test {

std::string line(const vlk::Envelope& envelope) {
  return std::to_string(envelope.type) + ' ' + std::to_string(envelope.flags) + ' ' +
         std::to_string(envelope.session_id) + ' ' + text_of(envelope);
}

std::vector<std::string> icelandic_on(const Desk& desk) {
  const std::string folder = desk.folder() + "/locale";
  desk.host("[ -d '" + folder + "' ] || { mkdir '" + folder + "' && localedef -i is_IS -f UTF-8 '" + folder +
            "/is_IS.UTF-8'; }");
  return {"LOCPATH=" + folder, "LC_ALL=is_IS.UTF-8"};
}

void keep_screenshot(const Desk& desk, const std::string& name) {
  desk.host("mkdir -p '" VANTELINK_SOURCE_DIR "/build/shots'");
  desk.screenshot(VANTELINK_SOURCE_DIR "/build/shots/" + name + ".png");
}

std::string evaluate_colours(const Desk& desk, int left, int top, int width, int height,
                             const std::string& expression) {
  return desk.host("import -window root -crop " + std::to_string(width) + 'x' + std::to_string(height) + '+' +
                   std::to_string(left) + '+' + std::to_string(top) + " -format '%[fx:" + expression +
                   "]' info:");
}

std::vector<std::string> texts_of(const std::vector<SeenWindow>& windows) {
  std::vector<std::string> texts;
  for (const SeenWindow& window : windows)
    if (!window.text.empty()) texts.push_back(window.text);
  return texts;
}

void ShellTest::SetUp() {
  AgentTest::SetUp();
  forget_settings(*desk);
}

std::vector<SeenWindow> ShellTest::panel() {
  std::vector<SeenWindow> windows;
  if (!eventually([&] { return !(windows = windows_on(*desk, {kAgentWindow})).empty(); }))
    throw std::runtime_error("the agent shows no window");
  return windows;
}

SeenWindow ShellTest::control(int id) {
  for (const SeenWindow& window : panel())
    if (window.child && window.id == id) return window;
  throw std::runtime_error("the agent's window has no control " + std::to_string(id));
}

bool ShellTest::reads(int id, const std::string& text) {
  return eventually([&] { return control(id).text == text; });
}

bool ShellTest::becomes_checked(bool checked) {
  return eventually([&] { return control(kUnattendedCheck).checked == (checked ? 1 : 0); });
}

bool ShellTest::becomes_visible(bool visible) {
  return eventually([&] { return panel().front().visible == visible; });
}

bool ShellTest::becomes_stored(const std::string& name, const std::string& value) {
  return eventually([&] { return registry_of(*desk)[name] == value; });
}

void ShellTest::settle() {
  // Sets a text first, because a status line that is empty already would not show when the window has handled
  // the last message.
  post(*desk, kAgentStatus, 0, 0);
  EXPECT_TRUE(eventually([] { return !control(kStatusLabel).text.empty(); }));
  post(*desk, kAgentStatus, 9999, 0);
  EXPECT_TRUE(reads(kStatusLabel, ""));
}

void ShellTest::expect_quiet(ServerConnection& peer) {
  settle();
  peer.send_envelope(vlk::Msg::Heartbeat, 0, "quiet?");
  EXPECT_EQ(line(peer.read_envelope()), "4 1 0 quiet?");
}

}  // namespace vantelink_test
