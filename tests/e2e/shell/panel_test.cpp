// The settings panel of the unmodified executable, seen and worked from outside as a person would.
#include "e2e/support/shell_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

const char kOwnPath[] = VANTELINK_SOURCE_DIR "/build/windows/VantelinkAgent.exe";

// What the autostart entry holds for this executable.
std::string own_entry() {
  std::string path = std::string("Z:") + kOwnPath;
  for (char& c : path)
    if (c == '/') c = '\\';
  return '"' + path + "\" --unattended";
}

std::string place(const SeenWindow& window) {
  return std::to_string(window.left) + ' ' + std::to_string(window.top) + ' ' + std::to_string(window.width) +
         ' ' + std::to_string(window.height);
}

class PanelTest : public ShellTest {
 protected:
  // Reads past the greeting.
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

  std::string greeting_;  // the message behind the hello
};

TEST_F(PanelTest, ControlsStandAsLaidOutInEnglish) {
  desk->set("DisplayName", "REG_SZ", "Þórunn Sveinsdóttir VE-401");
  const auto peer = start_online();
  EXPECT_TRUE(reads(kStatusLabel, "Connecting…"));
  const auto all = panel();
  ASSERT_EQ(all.size(), 6u);
  EXPECT_EQ(all[0].text, "Maravek Remote Support");
  EXPECT_EQ(all[0].style, 0x14CA0000u) << "caption, system menu, minimise box; visible and clipping siblings";
  EXPECT_EQ(all[0].width, 366);
  EXPECT_EQ(all[0].height, 465);
  const struct {
    const char* type;
    int id;
    unsigned style;
    const char* place;
    const char* text;
  } rows[] = {
      {"Static", 0, 0x50000000, "24 130 312 18", "Vessel name:"},
      // Wine's edit control takes the border out of its style and draws it itself.
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
  shot("panel-english");
}

TEST_F(PanelTest, TextsAreIcelandicForAnIcelandicUser) {
  desk->set("Unattended", "REG_DWORD", "1");
  const auto peer = start_online(icelandic());
  EXPECT_TRUE(reads(kStatusLabel, "Tengist…"));
  const auto all = panel();
  EXPECT_EQ(all[0].text, "Maravek Fjaraðstoð");
  EXPECT_EQ(all[1].text, "Skipsnafn/Skipsnúmer:");
  EXPECT_EQ(control(kUnattendedCheck).text, "Leyfa fjaraðstoð án eftirlits.");
  EXPECT_EQ(control(kUnattendedCheck).checked, 1) << "the stored switch";
  EXPECT_EQ(control(kApplyButton).text, "Vista");
  post(*desk, kAgentStatus, 2, 0);
  EXPECT_TRUE(reads(kStatusLabel, "Nettengdur, tilbúin fyrir fjaraðstoð"));
  shot("panel-icelandic");
}

TEST_F(PanelTest, StatusLineTellsOfTheConnectionAndNoticesStandUntilTheNextStatus) {
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
  server_.reset();  // so that it does not come back at once
  peer->abort();
  EXPECT_TRUE(reads(kStatusLabel, "Offline"));
}

TEST_F(PanelTest, ApplyStoresNameAndSwitchAndTellsTheServer) {
  auto peer = start_online();
  toggle_box();
  EXPECT_TRUE(eventually([] { return control(kUnattendedCheck).checked == 1; }));
  type_into(*desk, kNameEdit, "Sæbjörg RE \"5\"");
  EXPECT_TRUE(registry_of(*desk).empty()) << "before Apply nothing is stored";
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
  EXPECT_EQ(line(peer->read_envelope()), R"(67 1 9 {"session":9})") << "the switch holds without a restart";

  apply();
  EXPECT_EQ(line(peer->read_envelope()), R"(20 1 0 {"name":"Sæbjörg RE \"5\""})")
      << "also if nothing changed";

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

TEST_F(PanelTest, LongNamesAreCutAndAnEmptyOneIsTheComputersAgainAtTheNextStart) {
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
  end_agent();

  peer = start_online();
  EXPECT_TRUE(greeting_.starts_with(computer)) << greeting_;
  EXPECT_NE(computer, R"({"name":"")");
}

TEST_F(PanelTest, MenusSwitchTakesEffectAtOnceAndTheBoxFollows) {
  auto peer = start_online();
  type_into(*desk, kNameEdit, "typed, not applied");
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(eventually([] { return control(kUnattendedCheck).checked == 1; }));
  EXPECT_TRUE(eventually([] { return registry_of(*desk)["Unattended"] == "01000000"; }));
  EXPECT_EQ(registry_of(*desk)["VantelinkAgent"], own_entry());
  EXPECT_NE(registry_of(*desk)["DisplayName"], "typed, not applied");
  // The opposite of the stored value, whatever the box shows just now.
  toggle_box();
  EXPECT_TRUE(eventually([] { return control(kUnattendedCheck).checked == 0; }));
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(eventually([] { return registry_of(*desk)["Unattended"] == "00000000"; }));
  EXPECT_EQ(registry_of(*desk).count("VantelinkAgent"), 0u);
  EXPECT_EQ(control(kUnattendedCheck).checked, 0);
  expect_quiet(*peer);
}

TEST_F(PanelTest, MinimisingAndClosingHideAndTheWindowComesBackAsItWas) {
  auto peer = start_online();
  type_into(*desk, kNameEdit, "half a na");
  click_caption(kMinimiseButton);
  EXPECT_TRUE(becomes_visible(false));
  EXPECT_EQ(desk->exec({kAgent, "--unattended"}), 0) << "a second copy wakes the first and ends";
  EXPECT_TRUE(becomes_visible(true));
  EXPECT_TRUE(eventually([] { return panel().front().foreground; }));
  click_caption(kCloseButton);
  EXPECT_TRUE(becomes_visible(false));
  EXPECT_TRUE(running());
  post(*desk, kCommand, kMenuOpen | 0x7FFF0000, 0);
  EXPECT_TRUE(becomes_visible(true)) << "the menu's ids count with any high word";
  EXPECT_EQ(control(kNameEdit).text, "half a na");
  post(*desk, kCommand, kApplyButton | 0x00050000, 0);
  expect_quiet(*peer);  // no click, so nothing was applied
  EXPECT_EQ(registry_of(*desk).count("DisplayName"), 0u);
}

// Wine tells of another process's by its trace of the call alone.
TEST_F(PanelTest, ProcessTakesThePixelsOfEachMonitorAsTheyAre) {
  desk->output({"reg", "add", "HKCU\\Software\\Wine\\Debug", "/v", "RelayInclude", "/d",
                "user32.SetProcessDpiAwarenessContext", "/f"});
  const auto peer = start_online({"WINEDEBUG=+relay"});
  const std::string trace = desk->host("cat '" + desk->folder() + "'/out/*/stderr");
  EXPECT_NE(trace.find("Call user32.SetProcessDpiAwarenessContext(fffffffffffffffc)"), std::string::npos);
}

TEST_F(PanelTest, HiddenStartShowsTheWindowOnlyWhenAsked) {
  const auto peer = start({"--unattended"});
  peer->read_until(Msg::Hello);
  settle();
  EXPECT_FALSE(panel().front().visible);
  EXPECT_EQ(control(kUnattendedCheck).checked, 0) << "the switch of the command line is not the setting";
  EXPECT_TRUE(registry_of(*desk).empty());
  post(*desk, kCommand, kMenuOpen, 0);
  EXPECT_TRUE(becomes_visible(true));
}

TEST_F(PanelTest, ExitEndsTheProcessAndItsConnection) {
  auto peer = start_online();
  post(*desk, kCommand, kMenuExit, 0);
  EXPECT_TRUE(peer->wait_closed());
  EXPECT_TRUE(eventually([&] { return !running(); }));
}

TEST_F(PanelTest, ApplyInTheRunThatEnrolledOverwritesTheNewIdentity) {
  auto peer = start_online();
  peer->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-1","agent_secret":"s-1"})");
  EXPECT_TRUE(reads(kStatusLabel, "Registered with Maravek"));
  EXPECT_EQ(registry_of(*desk)["AgentId"], "id-1");
  EXPECT_EQ(registry_of(*desk)["AgentSecret"], "s-1");
  apply();
  peer->read_until(Msg::NameUpdate);
  EXPECT_EQ(registry_of(*desk)["AgentId"], "")
      << "the window's own copy of the settings knows of no identity";
  EXPECT_EQ(registry_of(*desk)["AgentSecret"], "");
  end_agent();
  start_online();
  EXPECT_NE(greeting_.find("hw_id"), std::string::npos) << "it enrols anew: " << greeting_;
}

TEST_F(PanelTest, EntryForAnotherPathIsLeftAsItIs) {
  desk->exec({"reg", "add", "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run", "/v", "VantelinkAgent",
              "/d", "elsewhere.exe", "/f"});
  const auto peer = start_online();
  post(*desk, kCommand, kMenuUnattended, 0);
  EXPECT_TRUE(eventually([] { return registry_of(*desk)["Unattended"] == "01000000"; }));
  EXPECT_EQ(registry_of(*desk)["VantelinkAgent"], "elsewhere.exe");
}

}  // namespace
}  // namespace vantelink_test
