// The settings window of the shipped executable, read and operated from another process.
#include "e2e/support/shell_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

// The autostart entry of this executable.
std::string own_entry() {
  return '"' + wine_path(kAgent) + "\" --unattended";
}

std::string place(const SeenWindow& window) {
  return std::to_string(window.left) + ' ' + std::to_string(window.top) + ' ' + std::to_string(window.width) +
         ' ' + std::to_string(window.height);
}

class PanelTest : public ShellTest {
 protected:
  // Starts the agent and reads the first two messages.
  std::unique_ptr<ServerConnection> start_online(const std::vector<std::string>& environment = {}) {
    auto peer = start({}, environment);
    peer->read_until(Msg::Hello);
    greeting_ = text_of(peer->read_envelope());
    return peer;
  }
  static void click_caption(int button) {
    const SeenWindow window = panel().front();
    click(*desk, window.screen_left + window.width - button, window.screen_top + kCaptionMiddle);
  }
  static void toggle_box() { click(*desk, control(kUnattendedCheck)); }
  static void apply() { click(*desk, control(kApplyButton)); }

  std::string greeting_;  // the payload of the message after the Hello
};

TEST_F(PanelTest, ControlsHaveTheExpectedPlacesStylesAndEnglishTexts) {
  desk->set("DisplayName", "REG_SZ", "Þórunn Sveinsdóttir VE-401");
  const auto peer = start_online();
  EXPECT_TRUE(reads(kStatusLabel, "Connecting…"));
  const auto all = panel();
  ASSERT_EQ(all.size(), 6u);
  EXPECT_EQ(all[0].text, "Maravek Remote Support");
  EXPECT_EQ(all[0].style, 0x14CA0000u)
      << "not a visible window with caption, system menu and minimise box that clips its siblings";
  // The frame's size depends on the version of Wine, so the client area is compared: without the frame, whose
  // top left part lies outside the first control's place in the client area.
  const int border = all[1].screen_left - all[0].screen_left - 24;
  const int caption = all[1].screen_top - all[0].screen_top - 130;
  EXPECT_EQ(all[0].width - 2 * border, 360);
  EXPECT_EQ(all[0].height - caption - border, 440);
  const struct {
    const char* type;
    int id;
    unsigned style;
    const char* place;
    const char* text;
  } rows[] = {
      {"Static", 0, 0x50000000, "24 130 312 18", "Vessel name:"},
      // Wine's edit control removes the border from its style and draws it itself.
      {"Edit", 1001, 0x50000080, "24 152 312 26", "Þórunn Sveinsdóttir VE-401"},
      {"Button", 1002, 0x50000003, "24 192 312 22", "Enable unattended access"},
      {"Button", 1003, 0x50000001, "24 224 100 30", "Apply"},
      {"Static", 1004, 0x50000000, "24 268 312 36", "Connecting…"},
  };
  for (std::size_t i = 0; i < std::size(rows); ++i) {
    const SeenWindow& seen = all[i + 1];
    EXPECT_TRUE(seen.child);
    EXPECT_EQ(seen.type, rows[i].type);
    EXPECT_EQ(seen.id, rows[i].id);
    EXPECT_EQ(seen.style, rows[i].style) << seen.id;
    EXPECT_EQ(seen.extended_style, 0u) << seen.id;
    EXPECT_EQ(place(seen), rows[i].place);
    EXPECT_EQ(seen.text, rows[i].text);
    EXPECT_EQ(seen.checked, 0);
  }
  screenshot("panel-english");
}

TEST_F(PanelTest, TextsAreIcelandicForAnIcelandicUser) {
  desk->set("Unattended", "REG_DWORD", "1");
  const auto peer = start_online(icelandic());
  EXPECT_TRUE(reads(kStatusLabel, "Tengist…"));
  const auto all = panel();
  EXPECT_EQ(all[0].text, "Maravek Fjaraðstoð");
  EXPECT_EQ(all[1].text, "Skipsnafn/Skipsnúmer:");
  EXPECT_EQ(control(kUnattendedCheck).text, "Leyfa fjaraðstoð án eftirlits.");
  EXPECT_EQ(control(kUnattendedCheck).checked, 1) << "the stored setting is not shown";
  EXPECT_EQ(control(kApplyButton).text, "Vista");
  post(*desk, kAgentStatus, 2, 0);
  EXPECT_TRUE(reads(kStatusLabel, "Nettengdur, tilbúin fyrir fjaraðstoð"));
  screenshot("panel-icelandic");
}

TEST_F(PanelTest, StatusLineShowsTheConnectionStatusAndShowsErrorsUntilTheNextStatus) {
  auto peer = start_online();
  EXPECT_TRUE(reads(kStatusLabel, "Connecting…"));
  peer->send_envelope(Msg::LoginResult, 0, "{}");
  EXPECT_TRUE(reads(kStatusLabel, "Connected to Maravek"));
  peer->send_envelope(Msg::StreamStart, 4, R"({"max_fps":1})");
  EXPECT_TRUE(reads(kStatusLabel, "Support session active"));
  peer->send_envelope(Msg::Error, 4, R"({"code":"X","message":"Villa á þjóni"})");
  EXPECT_TRUE(reads(kStatusLabel, "Villa á þjóni"));
  peer->send_envelope(Msg::StreamStop, 4, "");
  EXPECT_TRUE(reads(kStatusLabel, "Online — ready for support"));
  server_.reset();  // so that the agent cannot reconnect
  peer->abort();
  EXPECT_TRUE(reads(kStatusLabel, "Offline"));
}

TEST_F(PanelTest, ApplyButtonStoresNameAndUnattendedAccessAndSendsTheName) {
  auto peer = start_online();
  toggle_box();
  EXPECT_TRUE(becomes_checked(true));
  type_into(*desk, kNameEdit, "Sæbjörg RE \"5\"");
  EXPECT_TRUE(registry_of(*desk).empty()) << "a setting was stored before Apply";
  apply();
  EXPECT_EQ(line(peer->read_envelope()), R"(20 1 0 {"name":"Sæbjörg RE \"5\""})");
  using Values = std::map<std::string, std::string>;
  EXPECT_EQ(registry_of(*desk), (Values{{"DisplayName", "Sæbjörg RE \"5\""},
                                        {"Unattended", "01000000"},
                                        {"AgentId", ""},
                                        {"AgentSecret", ""},
                                        {"SkippedVersion", ""},
                                        {"VantelinkAgent", own_entry()}}));
  peer->send_envelope(Msg::SessionRequest, 9, "{}");
  EXPECT_EQ(line(peer->read_envelope()), R"(67 1 9 {"session":9})") << "the setting needs a restart";

  apply();
  EXPECT_EQ(line(peer->read_envelope()), R"(20 1 0 {"name":"Sæbjörg RE \"5\""})")
      << "Apply without a change sends nothing";

  toggle_box();
  apply();
  peer->read_until(Msg::NameUpdate);
  EXPECT_EQ(registry_of(*desk), (Values{{"DisplayName", "Sæbjörg RE \"5\""},
                                        {"Unattended", "00000000"},
                                        {"AgentId", ""},
                                        {"AgentSecret", ""},
                                        {"SkippedVersion", ""}}));
  expect_quiet(*peer);
}

TEST_F(PanelTest, LongNameIsTruncatedAndAnEmptyNameBecomesTheComputersNameAtTheNextStart) {
  auto peer = start_online();
  const std::string computer = greeting_.substr(0, greeting_.find(",\"machine_name\""));
  std::string name, cut;
  for (int i = 0; i < 300; ++i) {
    name += "ö";
    if (i < 255) cut += "ö";
  }
  type_into(*desk, kNameEdit, name);
  apply();
  EXPECT_EQ(line(peer->read_envelope()), "20 1 0 {\"name\":\"" + cut + "\"}");
  EXPECT_EQ(registry_of(*desk)["DisplayName"], cut);
  type_into(*desk, kNameEdit, "");
  apply();
  EXPECT_EQ(line(peer->read_envelope()), R"(20 1 0 {"name":""})");
  EXPECT_EQ(registry_of(*desk)["DisplayName"], "");
  kill_agent();

  peer = start_online();
  EXPECT_TRUE(greeting_.starts_with(computer)) << greeting_;
  EXPECT_NE(computer, R"({"name":"")");
}

TEST_F(PanelTest, MenuItemSwitchesUnattendedAccessAtOnceAndUpdatesTheCheckBox) {
  auto peer = start_online();
  type_into(*desk, kNameEdit, "typed, not applied");
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(becomes_checked(true));
  EXPECT_TRUE(becomes_stored("Unattended", "01000000"));
  EXPECT_EQ(registry_of(*desk)["VantelinkAgent"], own_entry());
  EXPECT_NE(registry_of(*desk)["DisplayName"], "typed, not applied");
  // The menu item inverts the stored value, not the value of the check box.
  toggle_box();
  EXPECT_TRUE(becomes_checked(false));
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(becomes_stored("Unattended", "00000000"));
  EXPECT_EQ(registry_of(*desk).count("VantelinkAgent"), 0u);
  EXPECT_EQ(control(kUnattendedCheck).checked, 0);
  expect_quiet(*peer);
}

TEST_F(PanelTest, MinimisingAndClosingHideTheWindowWhichKeepsItsTexts) {
  auto peer = start_online();
  type_into(*desk, kNameEdit, "half a na");
  click_caption(kMinimiseButton);
  EXPECT_TRUE(becomes_visible(false));
  EXPECT_EQ(desk->exec({kAgent, "--unattended"}), 0) << "a second copy did not end";
  EXPECT_TRUE(becomes_visible(true));
  EXPECT_TRUE(eventually([] { return panel().front().foreground; }));
  click_caption(kCloseButton);
  EXPECT_TRUE(becomes_visible(false));
  EXPECT_TRUE(running());
  post(*desk, kCommand, kMenuOpen | 0x7FFF0000, 0);
  EXPECT_TRUE(becomes_visible(true)) << "a menu item with a high word does nothing";
  EXPECT_EQ(control(kNameEdit).text, "half a na");
  post(*desk, kCommand, kApplyButton | 0x00050000, 0);
  expect_quiet(*peer);  // nothing was applied, because the high word is not that of a click
  EXPECT_EQ(registry_of(*desk).count("DisplayName"), 0u);
}

// Wine's trace of the call shows the awareness that the process has set.
TEST_F(PanelTest, ProcessIsAwareOfEachMonitorsPixelDensity) {
  desk->output({"reg", "add", "HKCU\\Software\\Wine\\Debug", "/v", "RelayInclude", "/d",
                "user32.SetProcessDpiAwarenessContext", "/f"});
  const auto peer = start_online({"WINEDEBUG=+relay"});
  const std::string trace = desk->host("cat '" + desk->folder() + "'/out/*/stderr");
  EXPECT_NE(trace.find("Call user32.SetProcessDpiAwarenessContext(fffffffffffffffc)"), std::string::npos);
}

TEST_F(PanelTest, WindowStaysHiddenAfterAnUnattendedStartUntilTheMenuOpensIt) {
  const auto peer = start({"--unattended"});
  peer->read_until(Msg::Hello);
  settle();
  EXPECT_FALSE(panel().front().visible);
  EXPECT_EQ(control(kUnattendedCheck).checked, 0) << "the command line changed the setting";
  EXPECT_TRUE(registry_of(*desk).empty());
  post(*desk, kCommand, kMenuOpen, 0);
  EXPECT_TRUE(becomes_visible(true));
}

TEST_F(PanelTest, ChoosingExitInTheMenuEndsTheProcessAndItsConnection) {
  auto peer = start_online();
  post(*desk, kCommand, kMenuExit, 0);
  EXPECT_TRUE(peer->wait_closed());
  EXPECT_TRUE(ends());
}

TEST_F(PanelTest, ApplyButtonAfterAnEnrolmentInTheSameRunDeletesTheNewIdentity) {
  auto peer = start_online();
  peer->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-1","agent_secret":"s-1"})");
  EXPECT_TRUE(reads(kStatusLabel, "Registered with Maravek"));
  EXPECT_EQ(registry_of(*desk)["AgentId"], "id-1");
  EXPECT_EQ(registry_of(*desk)["AgentSecret"], "s-1");
  apply();
  peer->read_until(Msg::NameUpdate);
  EXPECT_EQ(registry_of(*desk)["AgentId"], "")
      << "Apply did not store the window's older copy of the settings";
  EXPECT_EQ(registry_of(*desk)["AgentSecret"], "");
  kill_agent();
  start_online();
  EXPECT_NE(greeting_.find("hw_id"), std::string::npos) << "the agent does not enrol again: " << greeting_;
}

TEST_F(PanelTest, SwitchingUnattendedAccessOnDoesNotOverwriteAnExistingAutostartEntry) {
  desk->output({"reg", "add", "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run", "/v",
                "VantelinkAgent", "/d", "elsewhere.exe", "/f"});
  const auto peer = start_online();
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(becomes_stored("Unattended", "01000000"));
  EXPECT_EQ(registry_of(*desk)["VantelinkAgent"], "elsewhere.exe");
}

}  // namespace
}  // namespace vantelink_test
