// Tests of updates of the shipped executable, from the server's manifest to the start of the installer.
#include <fstream>
#include <random>
#include <utility>

#include "e2e/support/shell_fixture.h"
#include "support/bytes/file_bytes.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

constexpr int kInstall = 101;
constexpr int kLater = 102;
constexpr int kSkip = 103;

constexpr char kFailed[] = "Uppfærsla mistókst / Update download failed";

std::string ok(const std::string& body) {
  return "HTTP/1.1 200 OK\r\n\r\n" + body;
}

std::string offer_of(const std::string& version, const std::string& file = "Setup.exe") {
  return ok("{\"agent_version\":\"" + version + "\",\"agent_file\":\"" + file + "\"}");
}

class UpdateTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    peer_ = nullptr;
    desk->host("rm -f \"$WINEPREFIX\"/drive_c/users/*/Temp/* \"$WINEPREFIX\"/drive_c/users/*/*.exe");
  }

  // Starts the agent, answers its update check and accepts its connection, in the order in which the agent
  // makes them.
  void begin(const std::string& response, const std::vector<std::string>& environment = {}) {
    launch({}, environment);
    peer_ = nullptr;
    check_.clear();
    while (!peer_ || check_.empty()) {
      auto connection = accept_request();
      if (request_.starts_with("GET /version.json ")) {
        check_ = request_;
        connection->send(response);
        connection->end_sending();
        EXPECT_TRUE(connection->wait_closed())
            << "the agent does not close the connection after the response";
      } else {
        connection->accept_upgrade();
        peer_ = std::move(connection);
      }
    }
    peer_->read_until(Msg::Enroll);
  }
  std::unique_ptr<ServerConnection> accept_request() {
    auto connection = server_->accept();
    if (!connection->handshake()) throw std::runtime_error("the TLS handshake failed");
    request_ = connection->read_request();
    return connection;
  }

  // The dialog, followed by its controls; empty when there is no dialog.
  static std::vector<SeenWindow> dialog() { return windows_on(*desk, {kDialog}); }
  static std::vector<SeenWindow> wait_for_dialog() {
    std::vector<SeenWindow> all, before;
    EXPECT_TRUE(eventually([&] {
      before = std::exchange(all, dialog());
      // A dialog that is visible still moves and arranges its buttons for a while.
      return !all.empty() && all[0].visible && all == before;
    }));
    return all;
  }
  [[nodiscard]] static bool dialog_closes() {
    return eventually([] { return dialog().empty(); });
  }
  static void choose(int button) {
    for (const SeenWindow& window : wait_for_dialog())
      if (window.child && window.id == button) click(*desk, window);
    EXPECT_TRUE(dialog_closes());
  }
  // Waits until the agent has read the manifest, and fails if it then shows the dialog.
  static void expect_no_offer() {
    EXPECT_TRUE(becomes_logged("update: manifest"));
    settle();
    EXPECT_TRUE(dialog().empty());
  }

  static std::string temp() { return desk->host("echo \"$WINEPREFIX\"/drive_c/users/*/Temp") + '/'; }
  static std::string installer() { return file_bytes(VANTELINK_SOURCE_DIR "/build/windows/tests/mark.exe"); }

  std::unique_ptr<ServerConnection> peer_;
  std::string check_;    // the request for the manifest
  std::string request_;  // the last request
};

TEST_F(UpdateTest, UpdateOfferIsShownAndPostponingTheUpdateStoresNothing) {
  begin(offer_of("0.1.7"));
  const auto seen = wait_for_dialog();
  EXPECT_EQ(texts_of(seen),
            (std::vector<std::string>{"Maravek Remote Support", "Update available",
                                      "A newer version of Maravek Remote Support is available.  (0.1.7)",
                                      "Install", "Not right now", "Skip update"}));
  screenshot("update-english");
  EXPECT_EQ(check_,
            "GET /version.json HTTP/1.1\r\nHost: localhost\r\nUser-Agent: Vantelink\r\nConnection: "
            "close\r\n\r\n");
  EXPECT_TRUE(logged("update: manifest agent_version=0.1.7 current=0.1.6 newer=1 file=Setup.exe\n"));
  expect_quiet(*peer_);  // the window handles messages while the dialog is open
  choose(kLater);
  settle();
  EXPECT_TRUE(registry_of(*desk).empty());
  EXPECT_FALSE(server_->has_client(Milliseconds(0)));
  kill_agent();

  begin(offer_of("0.1.7"));
  const SeenWindow again = wait_for_dialog().at(0);
  click(*desk, again.screen_left + again.width - kCloseButton, again.screen_top + kCaptionMiddle);
  EXPECT_TRUE(dialog_closes());
  settle();
  EXPECT_TRUE(registry_of(*desk).empty()) << "closing the dialog stored an answer";
  EXPECT_FALSE(server_->has_client(Milliseconds(0)));
}

TEST_F(UpdateTest, UpdateOfferIsInIcelandicForAnIcelandicUser) {
  begin(offer_of("1"), icelandic());
  EXPECT_EQ(texts_of(wait_for_dialog()),
            (std::vector<std::string>{"Maravek Fjaraðstoð", "Uppfærsla í boði",
                                      "Nýrri útgáfa af Maravek fjaraðstoð er í boði.  (1)", "Setja upp",
                                      "Ekki núna", "Sleppa uppfærslu"}));
  screenshot("update-icelandic");
}

TEST_F(UpdateTest, SkippedVersionIsNotOfferedAgainAndOtherVersionsAre) {
  begin(offer_of("0.3"));
  choose(kSkip);
  EXPECT_TRUE(becomes_stored("SkippedVersion", "0.3"));
  EXPECT_EQ(registry_of(*desk)["Unattended"], "00000000");
  kill_agent();

  desk->host("rm -f \"$WINEPREFIX\"/drive_c/users/*/Temp/vlkagent.log");
  begin(offer_of("0.3"));
  expect_no_offer();
  kill_agent();

  begin(offer_of("0.2"));  // this version is older than the skipped version and newer than the agent
  choose(kSkip);
  EXPECT_TRUE(becomes_stored("SkippedVersion", "0.2"));
}

TEST_F(UpdateTest, EnrolmentDeletesTheSkippedVersionAndSkippingAVersionDeletesTheIdentity) {
  begin(offer_of("0.3"));
  choose(kSkip);
  EXPECT_TRUE(becomes_stored("SkippedVersion", "0.3"));
  // Enrolment stores the connection thread's copy of the settings, which was made before the version was
  // skipped.
  peer_->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-1","agent_secret":"s-1"})");
  EXPECT_TRUE(reads(kStatusLabel, "Registered with Maravek"));
  EXPECT_EQ(registry_of(*desk)["AgentId"], "id-1");
  EXPECT_EQ(registry_of(*desk)["SkippedVersion"], "");
  kill_agent();

  forget_settings(*desk);
  begin(offer_of("0.3"));
  peer_->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-2","agent_secret":"s-2"})");
  EXPECT_TRUE(reads(kStatusLabel, "Registered with Maravek"));
  EXPECT_EQ(registry_of(*desk)["AgentId"], "id-2");
  // Skipping stores the window's copy of the settings, which was made before the enrolment.
  choose(kSkip);
  EXPECT_TRUE(becomes_stored("SkippedVersion", "0.3"));
  EXPECT_EQ(registry_of(*desk)["AgentId"], "");
  EXPECT_EQ(registry_of(*desk)["AgentSecret"], "");
}

TEST_F(UpdateTest, ChoosingInstallDownloadsAndStartsTheInstallerAndEndsTheAgent) {
  const std::string path = temp() + "Ný uppsetning.exe";
  std::ofstream(path) << std::string(1'000'000, 'x');  // the download replaces this longer file
  begin(offer_of("0.2", "Ný uppsetning.exe"));
  choose(kInstall);
  const auto download = accept_request();
  EXPECT_EQ(request_,
            "GET /download/Ný uppsetning.exe HTTP/1.1\r\nHost: localhost\r\nUser-Agent: Vantelink\r\n"
            "Connection: close\r\n\r\n");
  EXPECT_TRUE(reads(kStatusLabel, "Sæki uppfærslu… / Downloading update…"));
  screenshot("update-downloading");
  expect_quiet(*peer_);  // the window handles messages during the download
  download->send(ok(installer()));
  download->close();
  EXPECT_TRUE(peer_->wait_closed());
  EXPECT_TRUE(ends());
  EXPECT_TRUE(file_bytes(path) == installer());
  EXPECT_TRUE(eventually([&] { return std::ifstream(path + ".mark").is_open(); }))
      << "the installer was not started";
  EXPECT_EQ(file_bytes(path + ".mark"), "") << "the installer was given arguments";
}

TEST_F(UpdateTest, FailedAndEmptyDownloadsAreReportedAndTheAgentContinues) {
  for (const std::string& response : {std::string("HTTP/1.1 404 Not Found\r\n\r\nno such file"), ok(""),
                                      std::string("HTTP/1.1 200 OK\r\n"), std::string()}) {
    begin(offer_of("0.2"));
    choose(kInstall);
    const auto download = accept_request();
    download->send(response);
    download->close();
    EXPECT_TRUE(reads(kStatusLabel, kFailed)) << response;
    EXPECT_FALSE(std::ifstream(temp() + "Setup.exe").is_open());
    peer_->send_envelope(Msg::LoginResult, 0, "{}");
    EXPECT_TRUE(reads(kStatusLabel, "Connected to Maravek"))
        << "the error stays on the status line after the next status";
    kill_agent();
  }
}

TEST_F(UpdateTest, FailureToCreateTheInstallersFileIsReported) {
  begin(offer_of("0.2", "no such folder/Setup.exe"));
  choose(kInstall);
  const auto download = accept_request();
  EXPECT_TRUE(request_.starts_with("GET /download/no such folder/Setup.exe HTTP/1.1\r\n"));
  download->send(ok("MZ"));
  download->close();
  EXPECT_TRUE(reads(kStatusLabel, "Uppfærsla mistókst / Update save failed"));
  expect_quiet(*peer_);
  EXPECT_TRUE(running());
}

TEST_F(UpdateTest, InstallerNameMayLeadOutOfItsFolderAndAnInstallerThatCannotStartAlsoEndsTheAgent) {
  begin(offer_of("0.2", R"(..\\Beside.exe)"));
  choose(kInstall);
  const auto download = accept_request();
  EXPECT_TRUE(request_.starts_with("GET /download/..\\Beside.exe HTTP/1.1\r\n"));
  download->send(ok("this is not a program"));
  download->close();
  EXPECT_TRUE(ends());
  EXPECT_EQ(file_bytes(temp() + "../Beside.exe"), "this is not a program");
}

TEST_F(UpdateTest, InvalidManifestsDoNotLeadToAnUpdateOffer) {
  std::mt19937 random(11);
  std::string noise(100'000, '\0');
  for (char& byte : noise)
    byte = static_cast<char>(random());
  begin(ok(noise));
  expect_no_offer();
  kill_agent();

  std::string headers = "HTTP/1.1 200 OK\r\n";
  while (headers.size() < (10u << 20))
    headers += "X-Filler: " + std::string(1000, 'x') + "\r\n";
  begin(headers);
  settle();
  EXPECT_TRUE(dialog().empty());
}

TEST_F(UpdateTest, WindowDoesNotWaitForAnUpdateCheckThatIsNeverAnswered) {
  launch();
  std::vector<std::unique_ptr<ServerConnection>> silent;
  while (!peer_) {
    auto connection = accept_request();
    if (request_.starts_with("GET /version.json ")) {
      silent.push_back(std::move(connection));
    } else {
      connection->accept_upgrade();
      peer_ = std::move(connection);
    }
  }
  peer_->read_until(Msg::Enroll);
  expect_quiet(*peer_);
  post(*desk, kCommand, kMenuExit, 0);
  EXPECT_TRUE(ends()) << "the update check keeps the process running";
}

}  // namespace
}  // namespace vantelink_test
