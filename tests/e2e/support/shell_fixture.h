// The agent's window as a person meets it, for tests of the shell.
#pragma once

#include <string>
#include <vector>

#include "e2e/support/agent_fixture.h"
#include "support/desk/desk_windows.h"

namespace vantelink_test {

inline constexpr char kAgentWindow[] = "VantelinkAgent";
inline constexpr char kDialog[] = "#32770";

inline constexpr int kNameEdit = 1001;
inline constexpr int kUnattendedCheck = 1002;
inline constexpr int kApplyButton = 1003;
inline constexpr int kStatusLabel = 1004;

// Items of the tray menu.
inline constexpr int kMenuOpen = 40001;
inline constexpr int kMenuUnattended = 40002;
inline constexpr int kMenuExit = 40003;

// From the window's right upper corner to the middle of a caption button, in pixels of Wine's own frame.
inline constexpr int kCloseButton = 13;
inline constexpr int kMinimiseButton = 47;
inline constexpr int kCaptionMiddle = 11;

inline constexpr unsigned kCommand = 0x0111;      // WM_COMMAND
inline constexpr unsigned kAgentStatus = 0x8001;  // WM_AGENT_STATUS

// A message in one line: type, flags, session and payload.
inline std::string line(const vlk::Envelope& envelope) {
  return std::to_string(envelope.type) + ' ' + std::to_string(envelope.flags) + ' ' +
         std::to_string(envelope.session_id) + ' ' + text_of(envelope);
}

// The variables that make a program of that desk Icelandic.
inline std::vector<std::string> icelandic_on(const Desk& desk) {
  const std::string folder = desk.folder() + "/locale";
  desk.host("[ -d '" + folder + "' ] || { mkdir '" + folder + "' && localedef -i is_IS -f UTF-8 '" + folder +
            "/is_IS.UTF-8'; }");
  return {"LOCPATH=" + folder, "LC_ALL=is_IS.UTF-8"};
}

// A picture for people to look at, in build/shots.
inline void keep_shot(const Desk& desk, const std::string& name) {
  desk.host("mkdir -p '" VANTELINK_SOURCE_DIR "/build/shots'");
  desk.shot(VANTELINK_SOURCE_DIR "/build/shots/" + name + ".png");
}

// An expression of ImageMagick's over a rectangle of the screen.
inline std::string colours_at(const Desk& desk, int left, int top, int width, int height,
                              const std::string& expression) {
  return desk.host("import -window root -crop " + std::to_string(width) + 'x' + std::to_string(height) + '+' +
                   std::to_string(left) + '+' + std::to_string(top) + " -format '%[fx:" + expression +
                   "]' info:");
}

class ShellTest : public AgentTest {
 protected:
  void SetUp() override {
    AgentTest::SetUp();
    forget_settings(*desk);
  }

  static std::vector<std::string> icelandic() { return icelandic_on(*desk); }

  static void shot(const std::string& name) { keep_shot(*desk, name); }

  // The agent's window and, behind it, its controls.
  static std::vector<SeenWindow> panel() {
    std::vector<SeenWindow> windows;
    if (!eventually([&] { return !(windows = windows_on(*desk, {kAgentWindow})).empty(); }))
      throw std::runtime_error("the agent shows no window");
    return windows;
  }
  static SeenWindow control(int id) {
    for (const SeenWindow& window : panel())
      if (window.child && window.id == id) return window;
    throw std::runtime_error("the agent's window has no control " + std::to_string(id));
  }
  static bool reads(int id, const std::string& text) {
    return eventually([&] { return control(id).text == text; });
  }
  static bool becomes_visible(bool visible) {
    return eventually([&] { return panel().front().visible == visible; });
  }

  // Returns when the window has handled all that was posted to it before. Leaves the status line empty.
  static void settle() {
    // A label that is empty already would tell nothing.
    post(*desk, kAgentStatus, 0, 0);
    EXPECT_TRUE(eventually([] { return !control(kStatusLabel).text.empty(); }));
    post(*desk, kAgentStatus, 9999, 0);
    EXPECT_TRUE(reads(kStatusLabel, ""));
  }

  // Fails if the agent said anything that the test has not read yet.
  static void expect_quiet(ServerConnection& peer) {
    settle();
    peer.send_envelope(vlk::Msg::Heartbeat, 0, "quiet?");
    EXPECT_EQ(line(peer.read_envelope()), "4 1 0 quiet?");
  }
};

}  // namespace vantelink_test
