// Tests of the icon in the notification area of an X display: its tooltip, its menu and clicks on it, with
// real mouse events.
#include "e2e/support/shell_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

// The middle of the icon, in pixels of the screen. It is the only icon and is at the right end of the area.
constexpr int kIconX = 1269;
constexpr int kIconY = 708;

constexpr int kRightButton = 3;

// The middle of each menu item with Wine's font and frame, in pixels from the menu's top edge.
constexpr int kOpenItem = 11;
constexpr int kUnattendedItem = 27;
constexpr int kExitItem = 52;

class TrayTest : public ShellTest {
 protected:
  static void SetUpTestSuite() { open_desk(Desk::Kind::NotificationArea); }

  // Exits through the menu, so that the agent removes its icon itself.
  void TearDown() override {
    if (running()) post(*desk, kCommand, kMenuExit, 0);
    EXPECT_TRUE(ends());
    expect_icons(0);
    ShellTest::TearDown();
  }

  void begin(const std::vector<std::string>& switches = {},
             const std::vector<std::string>& environment = {}) {
    peer_ = start(switches, environment);
    peer_->read_until(Msg::Enroll);
    expect_icons(1);
  }
  static void expect_icons(int count) {
    EXPECT_TRUE(eventually([&] {
      return desk->host("xwininfo -root -tree 2> /dev/null | grep -c 'explorer.exe.* 20x22+0+0 ' || true") ==
             std::to_string(count);
    }));
  }

  // Moves the pointer onto the icon repeatedly, since a tooltip closes after five seconds. Between two moves
  // the pointer rests longer than the half second after which a tooltip opens, since each move starts that
  // time again.
  [[nodiscard]] static bool tooltip_reads(const std::string& text) {
    constexpr Milliseconds kRest{2000};
    return eventually([&] {
      point(*desk, 640, 300);
      point(*desk, kIconX - 3, kIconY - 3);
      point(*desk, kIconX, kIconY);
      return eventually([&] { return shown_tooltip_reads(text); }, kRest);
    });
  }
  [[nodiscard]] static bool shown_tooltip_reads(const std::string& text) {
    for (const SeenWindow& window : windows_on(*desk, {"tooltips_class32"}))
      if (window.visible && window.text == text) return true;
    return false;
  }

  static std::vector<SeenWindow> visible_menus() {
    std::vector<SeenWindow> menus;
    for (const SeenWindow& window : windows_on(*desk, {"#32768"}))
      if (window.visible) menus.push_back(window);
    return menus;
  }
  static SeenWindow open_menu() {
    click(*desk, kIconX, kIconY, kRightButton);
    EXPECT_TRUE(eventually([] { return visible_menus().size() == 1; }));
    return visible_menus().at(0);
  }
  static void choose(int item) {
    const SeenWindow menu = open_menu();
    click(*desk, menu.screen_left + menu.width / 2, menu.screen_top + item);
    EXPECT_TRUE(eventually([] { return visible_menus().empty(); }));
  }
  static void close_menu() {
    click(*desk, 640, 300);
    EXPECT_TRUE(eventually([] { return visible_menus().empty(); }))
        << "a click elsewhere does not close the menu";
  }
  // Whether the menu item has a check mark: dark pixels before its text, where the menu is white otherwise.
  [[nodiscard]] static bool unattended_is_marked() {
    const SeenWindow menu = open_menu();
    const bool marked = evaluate_colours(*desk, menu.screen_left + 3, menu.screen_top + kUnattendedItem - 6,
                                         14, 12, "minima < 0.5") == "1";
    if (marked) screenshot("tray-menu-icelandic");
    close_menu();
    return marked;
  }

  std::unique_ptr<ServerConnection> peer_;
};

TEST_F(TrayTest, TooltipShowsTheStatusInEnglishToUsersOfEveryLanguage) {
  begin({}, icelandic());
  EXPECT_TRUE(tooltip_reads("Maravek Remote Support - Connecting…"));
  peer_->send_envelope(Msg::LoginResult, 0, "{}");
  EXPECT_TRUE(tooltip_reads("Maravek Remote Support - Online"));
  screenshot("tray-tooltip");
  for (const unsigned session : {1u, 2u, 3u})
    peer_->send_envelope(Msg::StreamStart, session, R"({"max_fps":1})");
  EXPECT_TRUE(tooltip_reads("Maravek Remote Support - Reps connected: 3"));
  post(*desk, kAgentStatus, 3, 0);
  EXPECT_TRUE(tooltip_reads("Maravek Remote Support - Reps connected: 1"));
  post(*desk, kAgentStatus, 77, 5);
  EXPECT_TRUE(tooltip_reads("Maravek Remote Support - Offline"));
  EXPECT_EQ(control(kStatusLabel).text, "") << "the window shows a text for an unknown status";
}

TEST_F(TrayTest, DoubleClickOnTheIconShowsTheWindowAndASingleClickDoesNot) {
  begin({"--unattended"});
  click(*desk, kIconX, kIconY);
  expect_quiet(*peer_);
  EXPECT_FALSE(panel().front().visible);
  click(*desk, kIconX, kIconY, 1, 2);
  // The window need not be in the foreground: the window manager decides about that.
  EXPECT_TRUE(becomes_visible(true));
}

TEST_F(TrayTest, MenuItemsShowTheWindowAndEndTheAgent) {
  begin({"--unattended"});
  open_menu();
  screenshot("tray-menu-english");
  close_menu();
  EXPECT_FALSE(panel().front().visible);
  choose(kOpenItem);
  EXPECT_TRUE(becomes_visible(true));
  choose(kExitItem);
  EXPECT_TRUE(peer_->wait_closed());
  EXPECT_TRUE(ends());
  expect_icons(0);
}

TEST_F(TrayTest, CheckMarkInTheMenuAndCheckBoxInTheWindowShowTheSameState) {
  begin({}, icelandic());
  EXPECT_FALSE(unattended_is_marked());
  choose(kUnattendedItem);
  EXPECT_TRUE(becomes_checked(true));
  EXPECT_EQ(registry_of(*desk)["Unattended"], "01000000");
  EXPECT_EQ(registry_of(*desk).count("VantelinkAgent"), 1u);
  EXPECT_TRUE(unattended_is_marked());
  choose(kUnattendedItem);
  EXPECT_TRUE(becomes_checked(false));
  EXPECT_EQ(registry_of(*desk)["Unattended"], "00000000");
  EXPECT_EQ(registry_of(*desk).count("VantelinkAgent"), 0u);

  // The check box changes the check mark only at Apply.
  click(*desk, control(kUnattendedCheck));
  EXPECT_TRUE(becomes_checked(true));
  EXPECT_FALSE(unattended_is_marked());
  click(*desk, control(kApplyButton));
  peer_->read_until(Msg::NameUpdate);
  EXPECT_TRUE(unattended_is_marked());
}

}  // namespace
}  // namespace vantelink_test
