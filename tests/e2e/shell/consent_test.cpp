// The prompt that asks the user whether a representative may connect: what it shows, what closes it, and
// every message that the agent sends.
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "e2e/support/shell_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

constexpr int kYes = 6;
constexpr int kNo = 7;
constexpr int kPromptText = 65535;
constexpr unsigned kTopmost = 0x8;           // WS_EX_TOPMOST
constexpr unsigned kConsentCancel = 0x8009;  // WM_CONSENT_CANCEL

class ConsentTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    peer_ = nullptr;
    desk->host("rm -f \"$WINEPREFIX\"/drive_c/users/*/Temp/vlkagent.log");
  }
  void begin(const std::vector<std::string>& switches = {},
             const std::vector<std::string>& environment = {}) {
    peer_ = start(switches, environment);
    peer_->read_until(Msg::Enroll);
  }
  void request(std::uint32_t session, const std::string& payload) {
    peer_->send_envelope(Msg::SessionRequest, session, payload);
  }

  struct Prompt {
    SeenWindow window;
    std::vector<SeenWindow> children;
    const SeenWindow& child(int id) const {
      for (const SeenWindow& one : children)
        if (one.id == id) return one;
      throw std::runtime_error("the prompt has no control " + std::to_string(id));
    }
    std::string text() const { return child(kPromptText).text; }
  };
  // The open prompts, the topmost first.
  static std::vector<Prompt> prompts() {
    std::vector<Prompt> all;
    for (const SeenWindow& window : windows_on(*desk, {kDialog})) {
      if (window.child) {
        all.back().children.push_back(window);
      } else {
        all.push_back({window, {}});
      }
    }
    return all;
  }
  // Waits for the prompts to be visible, because a prompt that is still being created is not yet above the
  // others.
  static std::vector<Prompt> wait_for_prompts(std::size_t count) {
    const auto complete = [](const Prompt& one) { return one.children.size() == 4 && one.window.visible; };
    std::vector<Prompt> all;
    EXPECT_TRUE(eventually([&] {
      all = prompts();
      return all.size() == count && std::ranges::all_of(all, complete);
    })) << all.size()
        << " prompts are open";
    return all;
  }
  static void answer(int button) { click(*desk, wait_for_prompts(1).at(0).child(button)); }

  std::unique_ptr<ServerConnection> peer_;
};

TEST_F(ConsentTest, PromptNamesTheRepresentativeAndAnsweringYesAcceptsTheSession) {
  begin();
  request(7, R"({"rep_name":"Guðrún Ósk"})");
  const Prompt prompt = wait_for_prompts(1).at(0);
  EXPECT_EQ(prompt.window.text, "Maravek Remote Support");
  EXPECT_EQ(prompt.text(),
            "Guðrún Ósk from Maravek is requesting to connect to your computer.\\n\\n"
            "Allow this remote support session?");
  EXPECT_TRUE(prompt.window.extended_style & kTopmost);
  EXPECT_EQ(prompt.child(kYes).text, "&Yes");
  EXPECT_EQ(prompt.child(kNo).text, "&No");
  screenshot("consent-english");
  answer(kYes);
  EXPECT_EQ(line(peer_->read_envelope()), R"(67 1 7 {"session":7})");
  wait_for_prompts(0);
  expect_quiet(*peer_);
}

TEST_F(ConsentTest, AnsweringNoRejectsTheSessionAndAMissingRepresentativeNameIsReplaced) {
  begin({}, icelandic());
  request(0xFFFFFFFF, "{}");
  const Prompt prompt = wait_for_prompts(1).at(0);
  EXPECT_EQ(prompt.window.text, "Maravek Fjaraðstoð");
  EXPECT_EQ(prompt.text(),
            "A representative frá Maravek óskar eftir að tengjast tölvunni þinni.\\n\\n"
            "Leyfa þessa fjaraðstoð?");
  screenshot("consent-icelandic");
  answer(kNo);
  EXPECT_EQ(line(peer_->read_envelope()), R"(68 1 4294967295 {"session":4294967295,"reason":"declined"})");
  expect_quiet(*peer_);
}

TEST_F(ConsentTest, AnsweringYesAllowsInput) {
  begin();
  const std::string key("\x01\x04\x01\x41\x00\x00\x00\x00", 8);
  peer_->send_envelope(Msg::InputEvent, 3, key, 0);
  EXPECT_TRUE(becomes_logged("[inject] DROP: session not active\n"));
  request(3, R"({"rep_name":"R"})");
  answer(kYes);
  peer_->read_until(Msg::SessionAccept);
  peer_->send_envelope(Msg::InputEvent, 3, key, 0);
  EXPECT_TRUE(becomes_logged("[inject] SendInput n=1 OK\n"));
}

// A download that the server does not read keeps the agent from sending its answer.
TEST_F(ConsentTest, AnsweringYesAllowsInputBeforeTheAnswerIsSent) {
  const std::string file = desk->folder() + "/prefix/drive_c/large";
  std::ofstream(file).close();
  std::filesystem::resize_file(file, 64 << 20);  // more than the buffers of the sockets
  begin();
  peer_->send_envelope(Msg::DownloadRequest, 3, R"({"path":"C:\\large","transfer_id":1})");
  request(3, R"({"rep_name":"R"})");
  answer(kYes);
  const std::string key("\x01\x04\x01\x41\x00\x00\x00\x00", 8);
  EXPECT_TRUE(eventually([&] {
    peer_->send_envelope(Msg::InputEvent, 3, key, 0);
    return logged("[inject] SendInput n=1 OK\n");
  }));
  EXPECT_EQ(line(peer_->read_until(Msg::SessionAccept)), R"(67 1 3 {"session":3})");
  peer_->read_until(Msg::FileTransferEnd);
  std::filesystem::remove(file);
}

TEST_F(ConsentTest, EndOfTheSessionClosesThePromptAndTheAgentDeclinesTheRequest) {
  begin();
  request(11, R"({"rep_name":"R"})");
  wait_for_prompts(1);
  peer_->send_envelope(Msg::SessionEnd, 11, "{}");
  EXPECT_EQ(line(peer_->read_envelope()), R"(68 1 11 {"session":11,"reason":"declined"})");
  wait_for_prompts(0);
  // A second request works like the first.
  request(12, R"({"rep_name":"S"})");
  EXPECT_TRUE(wait_for_prompts(1).at(0).text().starts_with("S from"));
  peer_->send_envelope(Msg::SessionEnd, 12, "{}");
  EXPECT_EQ(line(peer_->read_envelope()), R"(68 1 12 {"session":12,"reason":"declined"})");
  expect_quiet(*peer_);
}

TEST_F(ConsentTest, EndOfAnotherSessionLeavesThePromptOpen) {
  begin();
  for (const unsigned session : {0u, 1u, 20u}) {
    post(*desk, kConsentCancel, session, 0);
    peer_->send_envelope(Msg::SessionEnd, session, "");
  }
  expect_quiet(*peer_);
  request(20, R"({"rep_name":"R"})");
  wait_for_prompts(1);
  for (const unsigned session : {0u, 19u, 21u, 20u << 8})
    peer_->send_envelope(Msg::SessionEnd, session, "");
  expect_quiet(*peer_);
  wait_for_prompts(1);
  answer(kNo);
  EXPECT_EQ(line(peer_->read_envelope()), R"(68 1 20 {"session":20,"reason":"declined"})");
}

TEST_F(ConsentTest, SecondPromptIsShownOverTheFirstPromptWhichThenOnlyTheUserCanClose) {
  begin();
  request(31, R"({"rep_name":"First"})");
  wait_for_prompts(1);
  request(32, R"({"rep_name":"Second"})");
  const auto both = wait_for_prompts(2);
  EXPECT_TRUE(both.at(0).text().starts_with("Second from")) << both.at(0).text();
  EXPECT_TRUE(both.at(1).text().starts_with("First from")) << both.at(1).text();
  screenshot("consent-two");
  // SessionEnd closes only the newest prompt, which is the second one.
  peer_->send_envelope(Msg::SessionEnd, 31, "");
  expect_quiet(*peer_);
  wait_for_prompts(2);
  peer_->send_envelope(Msg::SessionEnd, 32, "");
  EXPECT_EQ(line(peer_->read_envelope()), R"(68 1 32 {"session":32,"reason":"declined"})");
  EXPECT_TRUE(wait_for_prompts(1).at(0).text().starts_with("First from"));
  peer_->send_envelope(Msg::SessionEnd, 31, "");
  expect_quiet(*peer_);
  wait_for_prompts(1);
  answer(kYes);
  EXPECT_EQ(line(peer_->read_envelope()), R"(67 1 31 {"session":31})")
      << "the answer names the session of the other prompt";
}

TEST_F(ConsentTest, PromptStaysOpenAfterADisconnectAndItsAnswerIsNotSent) {
  begin();
  request(41, R"({"rep_name":"R"})");
  wait_for_prompts(1);
  peer_->abort();
  EXPECT_TRUE(server_->has_client(kPatience)) << "the agent does not reconnect while the prompt is open";
  EXPECT_TRUE(reads(kStatusLabel, "Connecting…")) << "the window does not show the new status";
  wait_for_prompts(1);
  answer(kYes);
  wait_for_prompts(0);
  // The agent's first handshake after the disconnect.
  peer_ = server_->accept_upgraded();
  EXPECT_EQ(peer_->read_envelope().type, static_cast<std::uint8_t>(Msg::Hello));
  EXPECT_EQ(peer_->read_envelope().type, static_cast<std::uint8_t>(Msg::Enroll));
  expect_quiet(*peer_);
}

TEST_F(ConsentTest, PromptIsTopmostEvenWhileTheAgentsWindowIsHidden) {
  desk->spawn({"notepad"});
  EXPECT_TRUE(eventually([] { return !windows_on(*desk, {"Notepad"}).empty(); }));
  begin({"--unattended"});
  request(51, R"({"rep_name":"R"})");
  const Prompt prompt = wait_for_prompts(1).at(0);
  EXPECT_FALSE(panel().front().visible);
  EXPECT_TRUE(prompt.window.visible);
  EXPECT_EQ(window_at(*desk, prompt.window.screen_left + 5, prompt.window.screen_top + 5), kDialog);
  answer(kYes);
  EXPECT_EQ(line(peer_->read_envelope()), R"(67 1 51 {"session":51})");
  EXPECT_FALSE(panel().front().visible);
}

TEST_F(ConsentTest, UnattendedMachineShowsNoPrompt) {
  desk->set("Unattended", "REG_DWORD", "1");
  begin();
  request(61, R"({"rep_name":"R"})");
  EXPECT_EQ(line(peer_->read_envelope()), R"(67 1 61 {"session":61})");
  expect_quiet(*peer_);
  EXPECT_TRUE(prompts().empty());
}

TEST_F(ConsentTest, UnusualNamesOfRepresentativesAreShownInThePrompt) {
  begin();
  std::uint32_t session = 70;
  for (const std::string& name : {std::string(), std::string(3000, 'W'), std::string("\xff\xfe\x80"),
                                  std::string("%s%n&amp;\\\\"), std::string("two\\nlines")}) {
    request(++session, "{\"rep_name\":\"" + name + "\"}");
    EXPECT_NE(wait_for_prompts(1).at(0).text().find(" from Maravek is requesting"), std::string::npos);
    peer_->send_envelope(Msg::SessionEnd, session, "");
    EXPECT_EQ(line(peer_->read_envelope()), "68 1 " + std::to_string(session) + " {\"session\":" +
                                                std::to_string(session) + ",\"reason\":\"declined\"}");
    wait_for_prompts(0);
  }
}

}  // namespace
}  // namespace vantelink_test
