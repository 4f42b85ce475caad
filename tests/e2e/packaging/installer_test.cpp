// The installer on a desk: fresh, as an update, failing, and gone again.
#include "e2e/support/installer_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

TEST_F(InstallerTest, SilentlyInstallsTheServiceAndLeavesOnlySettingsWhenItGoes) {
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
  // As the agent itself writes it when unattended access is switched on.
  desk->exec({"reg", "add", kRunKey, "/v", "VantelinkAgent", "/d",
              '"' + std::string(kInstalledPath) + "\" --unattended", "/f"});

  uninstall();
  EXPECT_TRUE(gone("VantelinkAgent.exe"));
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(key_exists(kUninstallKey));
  EXPECT_NE(desk->settings().find("id-1"), std::string::npos) << "the settings stay";
  EXPECT_EQ(desk->exec({"reg", "query", kRunKey, "/v", "VantelinkAgent"}), 1);
  for (const std::string& name : added(before))
    EXPECT_NE(name.find("/Temp/vlkagent.log"), std::string::npos) << name << " was left";
}

TEST_F(InstallerTest, WithoutTheServiceTheAgentRunsForTheUser) {
  ASSERT_EQ(setup(old_setup, {"/S", "/NOSTARTMENU"}), 0);
  auto peer = greeted();
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(windows_on(*desk, {kAgentWindow}).front().visible);
  EXPECT_EQ(desk->exec({"cmd", "/c", "dir",
                        "C:\\ProgramData\\Microsoft\\Windows\\Start "
                        "Menu\\Programs\\Maravek Remote Support.lnk"}),
            1);
  // An autostart entry of another copy is not this installation's.
  desk->exec({"reg", "add", kRunKey, "/v", "VantelinkAgent", "/d", "\"C:\\other.exe\" --unattended", "/f"});
  uninstall();
  EXPECT_TRUE(peer->wait_closed());
  EXPECT_EQ(desk->exec({"reg", "query", kRunKey, "/v", "VantelinkAgent"}), 0);
}

TEST_F(InstallerTest, ServiceCanBeTakenAwayAndGivenBack) {
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

TEST_F(InstallerTest, SilentUpdateKeepsWhatIsInstalled) {
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE", "/NOSTARTMENU"}), 0);
  greeted();
  ASSERT_EQ(setup(new_setup), 0);
  greeted();
  EXPECT_EQ(installed_version(), kNewVersion);
  EXPECT_TRUE(installed_is(folder + "/newer.exe"));
  EXPECT_EQ(processes(kChild).size(), 1u);
  EXPECT_EQ(files_of_installation(), 2) << "nothing in between is left";
}

TEST_F(InstallerTest, AgentComesBackForTheUserWhereTheServiceCannotBeStarted) {
  ASSERT_EQ(setup(old_setup), 0);
  greeted();
  add_disabled_service();
  EXPECT_EQ(setup(new_setup), 0);
  greeted();
  EXPECT_TRUE(installed_is(folder + "/newer.exe"));
  EXPECT_TRUE(processes(kChild).empty());
}

TEST_F(InstallerTest, ServiceThatCannotBeMadeIsToldAndTheAgentRunsForTheUser) {
  const DisplayNameTaken taken;
  EXPECT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 2);
  greeted();
  EXPECT_FALSE(service_exists());
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, UninstallerInUseStaysAndTheAgentIsReplaced) {
  ASSERT_EQ(setup(old_setup), 0);
  greeted();
  const int holder = hold_file(*desk, "C:\\Program Files\\Maravek\\Vantelink\\Uninstall.exe");
  EXPECT_EQ(setup(new_setup), 0);
  ::kill(holder, SIGKILL);
  greeted();
  EXPECT_TRUE(installed_is(folder + "/newer.exe"));
  EXPECT_EQ(files_of_installation(), 2) << "nothing in between is left";
}

TEST_F(InstallerTest, FileInUseLeavesTheOldVersionWorking) {
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
    EXPECT_EQ(files_of_installation(), 2);
    EXPECT_EQ(setup(new_setup), 0) << "once the file is free";
    greeted();
    EXPECT_TRUE(installed_is(folder + "/newer.exe"));
  }
}

TEST_F(InstallerTest, FullDiskLeavesTheOldVersionRunning) {
  ASSERT_EQ(setup(old_setup, {"/S", "/SERVICE"}), 0);
  auto peer = greeted();
  EXPECT_EQ(setup_on_a_full_disk(new_setup), "2");
  EXPECT_TRUE(installed_is(kAgent));
  EXPECT_EQ(installed_version(), vlk::agent::kUpdateVersion);
  EXPECT_EQ(files_of_installation(), 2);
  peer->send_envelope(Msg::Heartbeat, 0, "never stopped");
  EXPECT_EQ(text_of(peer->read_until(Msg::Heartbeat)), "never stopped");
}

TEST_F(InstallerTest, AgentThatEndedForAnUpdateComesBackFromAFullDisk) {
  ASSERT_EQ(setup(old_setup), 0);
  for (const bool service : {false, true}) {  // one that does not run
    if (service) add_disabled_service();
    greeted();
    kill_agents();
    EXPECT_EQ(setup_on_a_full_disk(new_setup), "2");
  }
  greeted();
  EXPECT_TRUE(installed_is(kAgent));
}

TEST_F(InstallerTest, FullDiskLeavesNothingOfANewInstallation) {
  EXPECT_EQ(setup_on_a_full_disk(old_setup), "2");
  EXPECT_FALSE(std::filesystem::exists(desk->folder() + "/prefix/drive_c/Program Files/Maravek"));
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(key_exists(kUninstallKey));
}

}  // namespace
}  // namespace vantelink_test
