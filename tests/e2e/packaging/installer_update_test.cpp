// The installer as users see it: as an update that the agent offers, from the relay's manifest to the log-in
// of the newer agent, and as a wizard in English and Icelandic.
#include <filesystem>
#include <fstream>

#include "config/config.h"
#include "e2e/support/installer_fixture.h"
#include "support/bytes/file_bytes.h"
#include "support/peers/relay_process.h"
#include "update/version.h"

namespace vantelink_test {
namespace {

constexpr int kInstallButton = 101;  // a control of the agent's update dialog
constexpr int kNextButton = 1;       // a control of the wizard; its text changes from page to page
constexpr int kCancelButton = 2;
constexpr char kOnline[] = "online as ";        // the relay logs this at each log-in
constexpr char kOver[] = "agent disconnected";  // the relay logs this at each disconnect

class InstallerUpdateTest : public InstallerTest {
 protected:
  // Starts a relay that offers the newer version, in place of the scripted server. Agents trust the
  // relay's certificate.
  void offer_from_relay() {
    const std::string data = folder + "/relay";
    std::filesystem::remove_all(data);
    relay_ = std::make_unique<RelayProcess>(
        data,
        std::vector<std::string>{"--updates", folder + "/new", "--update-key", folder + "/update-key.pub.pem",
                                 "--host", vlk::agent::default_server_host()});
    std::ofstream(folder + "/ca.pem") << file_bytes(data + "/relay-cert.pem");
    redirect_to(relay_->port());
  }
  void TearDown() override {
    InstallerTest::TearDown();
    relay_.reset();
    std::ofstream(folder + "/ca.pem") << authority->pem();
    remove_downloads();
  }
  // Removes the installer that the agent has downloaded, and the agent's log.
  static void remove_downloads() {
    desk->host(
        "rm -f \"$WINEPREFIX\"/drive_c/users/*/Temp/VantelinkSetup-*.exe "
        "\"$WINEPREFIX\"/drive_c/users/*/Temp/vlkagent.log");
  }

  // Waits for the dialog's button with this id and clicks it.
  static void press(int id) {
    SeenWindow found;
    ASSERT_TRUE(eventually([&] {
      for (const SeenWindow& window : windows_on(*desk, {kDialog})) {
        if (!window.child || window.id != id || window.type != "Button" || !window.visible) continue;
        found = window;
        return true;
      }
      return false;
    })) << "there is no button "
        << id;
    click(*desk, found);
  }
  // Closes the message box, which is above the wizard.
  static void press_ok() {
    for (const SeenWindow& window : windows_on(*desk, {kDialog}))
      if (window.text == "OK") return click(*desk, window);
    FAIL() << "there is no message";
  }
  void expect_update(bool service) {
    ASSERT_TRUE(eventually([&] { return relay_->logged(kOnline) == 1; })) << relay_->log();
    const std::string identity = desk->settings();
    press(kInstallButton);
    // The newer agent replaces the older one without another question and keeps its identity. A service
    // starts the older agent once more before the installer ends it, so there may be more than two log-ins.
    EXPECT_TRUE(eventually([&] {
      return desk->debug_log().find("update: manifest agent_version=0.1.7 current=0.1.7 newer=0") !=
             std::string::npos;
    })) << desk->debug_log();
    EXPECT_TRUE(gone("VantelinkSetup"));
    EXPECT_TRUE(installed_is(new_agent));
    EXPECT_EQ(installed_version(), kNewVersion);
    EXPECT_TRUE(eventually([&] {
      const int log_ins = relay_->logged(kOnline);
      return log_ins >= 2 && log_ins - relay_->logged(kOver) == 1;
    })) << relay_->log();
    EXPECT_EQ(desk->settings(), identity);
    EXPECT_EQ(processes(kChild).size(), service ? 1u : 0u);
  }

  std::unique_ptr<RelayProcess> relay_;
};

TEST_F(InstallerUpdateTest, AcceptedUpdateFromTheRelayInstallsTheNewerAgentUnderTheService) {
  offer_from_relay();
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  expect_update(true);
}

TEST_F(InstallerUpdateTest, AcceptedUpdateFromTheRelayInstallsTheNewerAgentForTheUser) {
  offer_from_relay();
  ASSERT_EQ(setup(old_setup, {"/S"}), 0);
  expect_update(false);
}

TEST_F(InstallerUpdateTest, OlderInstallerAsksBeforeItReplacesANewerAgent) {
  ASSERT_EQ(setup(new_setup), 0);
  greeted();
  const int pid = desk->spawn({old_setup});
  press(kCancelButton);
  EXPECT_TRUE(eventually([&] { return !is_running(pid); }));
  EXPECT_TRUE(installed_is(new_agent));
  EXPECT_EQ(installed_version(), kNewVersion);
}

TEST_F(InstallerUpdateTest, WizardInstallsInEnglishAndIcelandic) {
  for (const bool icelandic : {false, true}) {
    std::vector<std::string> variables = {"SSL_CERT_FILE=" + folder + "/ca.pem"};
    if (icelandic) {
      for (const std::string& one : icelandic_on(*desk))
        variables.push_back(one);
    }
    desk->spawn({old_setup}, variables);
    std::string texts;
    const auto shown = [&](const std::string& text) {
      return eventually([&] {
        texts.clear();
        for (const SeenWindow& window : windows_on(*desk, {kDialog}))
          texts += window.text + '\n';
        return texts.find(text) != std::string::npos;
      });
    };
    EXPECT_TRUE(shown(icelandic ? "Maravek Fjaraðstoð" : "Maravek Remote Support Setup")) << texts;
    press(kNextButton);
    keep_screenshot(*desk, icelandic ? "installer-icelandic" : "installer-english");
    press(kNextButton);
    EXPECT_TRUE(shown(icelandic ? "&Setja upp" : "&Install")) << texts;
    press(kNextButton);
    greeted();
    EXPECT_TRUE(shown(icelandic ? "Windows treystir ekki skilríki miðlarans"
                                : "Windows does not trust the certificate of the relay"))
        << texts;
    keep_screenshot(*desk, icelandic ? "installer-relay-icelandic" : "installer-relay-english");
    press_ok();
    press(kNextButton);
    EXPECT_TRUE(gone("VantelinkSetup"));
    EXPECT_TRUE(windows_on(*desk, {kAgentWindow}).front().visible);
    uninstall();
    EXPECT_TRUE(gone("VantelinkAgent.exe"));
  }
}

}  // namespace
}  // namespace vantelink_test
