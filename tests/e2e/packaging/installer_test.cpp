// Tests of the installer: new installations, updates, failures, and removal.
#include <signal.h>

#include <filesystem>

#include "e2e/support/installer_fixture.h"
#include "update/version.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

TEST_F(InstallerTest, SilentInstallationStartsTheServiceAndRemovalLeavesOnlyTheSettings) {
  const auto before = files();
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  auto peer = greeted();
  peer->read_until(Msg::Enroll);
  peer->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-1","agent_secret":"s-1"})");
  EXPECT_EQ(processes(kChild).size(), 1u);
  EXPECT_TRUE(installed_is(kAgent));
  EXPECT_NE(desk->output({"reg", "query", "HKLM\\System\\CurrentControlSet\\Services\\VantelinkAgent"})
                .find('"' + std::string(kInstalledPath) + "\" --service"),
            std::string::npos);
  EXPECT_TRUE(
      added(before).contains("/ProgramData/Microsoft/Windows/Start Menu/Programs/Maravek Remote "
                             "Support.lnk"));
  EXPECT_TRUE(eventually([&] { return desk->settings().find("id-1") != std::string::npos; }));
  // The entry that the agent writes when unattended access is enabled.
  set_run_entry('"' + std::string(kInstalledPath) + "\" --unattended");

  uninstall();
  EXPECT_TRUE(gone("VantelinkAgent.exe"));
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(key_exists(kUninstallKey));
  EXPECT_NE(desk->settings().find("id-1"), std::string::npos) << "the settings were removed";
  EXPECT_FALSE(run_entry_exists());
  for (const std::string& name : added(before))
    EXPECT_NE(name.find("/Temp/vlkagent.log"), std::string::npos) << name << " was left";
}

TEST_F(InstallerTest, AgentInstalledWithoutTheServiceRunsForTheUser) {
  ASSERT_EQ(setup(old_setup, {"/S", "/NOSTARTMENU"}), 0);
  auto peer = greeted();
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(windows_on(*desk, {kAgentWindow}).front().visible);
  EXPECT_EQ(desk->exec({"cmd", "/c", "dir",
                        "C:\\ProgramData\\Microsoft\\Windows\\Start "
                        "Menu\\Programs\\Maravek Remote Support.lnk"}),
            1);
  // An autostart entry of another copy does not belong to this installation.
  set_run_entry("\"C:\\other.exe\" --unattended");
  uninstall();
  EXPECT_TRUE(peer->wait_closed());
  EXPECT_TRUE(run_entry_exists());
}

TEST_F(InstallerTest, NewInstallationLetsWindowsVerifyTheRelaysCertificateBeforeTheAgentStarts) {
  desk->spawn({old_setup, "/S"}, {"SSL_CERT_FILE=" + folder + "/ca.pem"});
  const auto first = server_->accept();
  EXPECT_TRUE(first->handshake());
  // Windows verifies the certificate after the handshake and refuses it, so it sends no request.
  EXPECT_THROW(first->read_request(), std::runtime_error);
  greeted();
  EXPECT_TRUE(gone("VantelinkSetup"));
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, NewInstallationEndsAlthoughTheRelayDoesNotAnswer) {
  EXPECT_EQ(setup_with_relay(old_setup), 0);
  greeted();
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, UpdateSendsNoRequestOfItsOwnToTheRelay) {
  ASSERT_EQ(setup(old_setup), 0);
  const auto old_agent = greeted();
  const int pid = desk->spawn({new_setup, "/S"}, {"SSL_CERT_FILE=" + folder + "/ca.pem"});
  // Agents send a request on each connection; Windows would send none, because it does not trust the relay.
  std::string request;
  while (!request.starts_with("GET /link ")) {
    const auto next = server_->accept();
    ASSERT_TRUE(next->handshake());
    request = next->read_request();
  }
  EXPECT_TRUE(eventually([&] { return !is_running(pid); }));
  EXPECT_TRUE(installed_is(new_agent));
}

TEST_F(InstallerTest, ServiceCanBeRemovedAndInstalledAgain) {
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  greeted();
  ASSERT_EQ(setup(old_setup, {"/S", "/NOSERVICE"}), 0);
  greeted();
  EXPECT_FALSE(service_exists());
  EXPECT_TRUE(processes(kChild).empty());
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  greeted();
  EXPECT_EQ(processes(kChild).size(), 1u);
}

TEST_F(InstallerTest, SilentUpdateKeepsTheServiceAndReplacesTheAgent) {
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE", "/NOSTARTMENU"}), 0);
  greeted();
  ASSERT_EQ(setup(new_setup), 0);
  greeted();
  EXPECT_EQ(installed_version(), kNewVersion);
  EXPECT_TRUE(installed_is(new_agent));
  EXPECT_EQ(processes(kChild).size(), 1u);
  EXPECT_EQ(installed_files(), 2) << "temporary files were left";
}

TEST_F(InstallerTest, AgentStartsForTheUserWhenTheServiceCannotBeStarted) {
  ASSERT_EQ(setup(old_setup), 0);
  greeted();
  add_disabled_service();
  EXPECT_EQ(setup(new_setup), 0);
  greeted();
  EXPECT_TRUE(installed_is(new_agent));
  EXPECT_TRUE(processes(kChild).empty());
}

TEST_F(InstallerTest, FailureToCreateTheServiceIsReportedAndTheAgentRunsForTheUser) {
  const DisplayNameTaken taken;
  EXPECT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 2);
  greeted();
  EXPECT_FALSE(service_exists());
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, UpdateKeepsAnUninstallerInUseAndReplacesTheAgent) {
  ASSERT_EQ(setup(old_setup), 0);
  greeted();
  const int holder = hold_file(*desk, "C:\\Program Files\\Maravek\\Vantelink\\Uninstall.exe");
  EXPECT_EQ(setup(new_setup), 0);
  ::kill(holder, SIGKILL);
  greeted();
  EXPECT_TRUE(installed_is(new_agent));
  EXPECT_EQ(installed_files(), 2) << "temporary files were left";
}

TEST_F(InstallerTest, UpdateOfAnExecutableInUseLeavesTheOldVersionWorking) {
  for (const bool service : {true, false}) {
    ASSERT_EQ(setup(old_setup, {"/S", service ? "/SERVICE" : "/NOSERVICE"}), 0);
    greeted();
    const int holder = hold_file(*desk, kInstalledPath);
    const int status = setup(new_setup);
    ::kill(holder, SIGKILL);
    EXPECT_EQ(status, 2);
    greeted();
    EXPECT_TRUE(installed_is(kAgent));
    EXPECT_EQ(installed_version(), vlk::agent::kUpdateVersion);
    EXPECT_EQ(processes(kChild).size(), service ? 1u : 0u);
    EXPECT_EQ(installed_files(), 2);
    EXPECT_EQ(setup(new_setup), 0) << "the update fails although the file is free";
    greeted();
    EXPECT_TRUE(installed_is(new_agent));
  }
}

TEST_F(InstallerTest, UpdateOnAFullDiskLeavesTheOldVersionRunning) {
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  auto peer = greeted();
  EXPECT_EQ(setup_on_full_disk(new_setup), "2");
  EXPECT_TRUE(installed_is(kAgent));
  EXPECT_EQ(installed_version(), vlk::agent::kUpdateVersion);
  EXPECT_EQ(installed_files(), 2);
  peer->send_envelope(Msg::Heartbeat, 0, "never stopped");
  EXPECT_EQ(text_of(peer->read_until(Msg::Heartbeat)), "never stopped");
}

TEST_F(InstallerTest, AgentThatEndedForAnUpdateIsStartedAgainWhenTheDiskIsFull) {
  ASSERT_EQ(setup(old_setup), 0);
  for (const bool service : {false, true}) {  // in the second round a disabled service is installed
    if (service) add_disabled_service();
    greeted();
    kill_agents();
    EXPECT_EQ(setup_on_full_disk(new_setup), "2");
  }
  greeted();
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, NewInstallationOnAFullDiskLeavesNoFilesServiceOrRegistryKey) {
  EXPECT_EQ(setup_on_full_disk(old_setup), "2");
  EXPECT_FALSE(std::filesystem::exists(desk->folder() + "/prefix/drive_c/Program Files/Maravek"));
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(key_exists(kUninstallKey));
}

}  // namespace
}  // namespace vantelink_test
