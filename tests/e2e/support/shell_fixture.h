// The agent's window as a user sees and operates it, for tests of the shell.
#pragma once

#include <string>
#include <vector>

#include "e2e/support/agent_fixture.h"
#include "support/desk/desk_windows.h"

namespace vantelink_test {

// Window classes.
inline constexpr char kAgentWindow[] = "VantelinkAgent";
inline constexpr char kDialog[] = "#32770";

// Controls of the agent's window.
inline constexpr int kNameEdit = 1001;
inline constexpr int kUnattendedCheck = 1002;
inline constexpr int kApplyButton = 1003;
inline constexpr int kStatusLabel = 1004;

// Items of the tray menu.
inline constexpr int kMenuOpen = 40001;
inline constexpr int kMenuUnattended = 40002;
inline constexpr int kMenuExit = 40003;

// The middle of a caption button in Wine's window frame, in pixels from the window's top right corner.
inline constexpr int kCloseButton = 13;
inline constexpr int kMinimiseButton = 47;
inline constexpr int kCaptionMiddle = 11;

inline constexpr unsigned kCommand = 0x0111;      // WM_COMMAND
inline constexpr unsigned kAgentStatus = 0x8001;  // WM_AGENT_STATUS

// The envelope in one line: type, flags, session and payload.
std::string line(const vlk::Envelope& envelope);

// Environment variables that set the user's language to Icelandic.
std::vector<std::string> icelandic_on(const Desk& desk);

// Saves a screenshot in build/shots, for people to look at.
void keep_screenshot(const Desk& desk, const std::string& name);

// The value of an ImageMagick fx expression over a rectangle of the screen.
std::string evaluate_colours(const Desk& desk, int left, int top, int width, int height,
                             const std::string& expression);

// The texts of these windows and controls, without the empty ones.
std::vector<std::string> texts_of(const std::vector<SeenWindow>& windows);

class ShellTest : public AgentTest {
 protected:
  void SetUp() override;

  static std::vector<std::string> icelandic() { return icelandic_on(*desk); }
  static void screenshot(const std::string& name) { keep_screenshot(*desk, name); }

  // The agent's window, followed by its controls.
  static std::vector<SeenWindow> panel();
  static SeenWindow control(int id);
  // Whether the control gets the text, the check box the state, or the window the visibility, in time.
  [[nodiscard]] static bool reads(int id, const std::string& text);
  [[nodiscard]] static bool becomes_checked(bool checked);
  [[nodiscard]] static bool becomes_visible(bool visible);
  // Whether the stored value of the agent's registry key becomes this in time.
  [[nodiscard]] static bool becomes_stored(const std::string& name, const std::string& value);

  // Returns when the agent's window has handled all messages that were posted to it before. Empties the
  // status line.
  static void settle();

  // Fails if the agent has sent anything that the test has not read.
  static void expect_quiet(ServerConnection& peer);
};

}  // namespace vantelink_test
