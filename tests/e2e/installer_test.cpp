// The installer on a desk: fresh, as an update, failing, and gone again. Packages are made by the script that
// makes releases; the newer version is the same executable with another number in it.
#include <signal.h>

#include <set>

#include "e2e/redirect_fixture.h"
#include "update/version.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

constexpr char kNewVersion[] = "0.1.7";
constexpr char kInstalledPath[] = "C:\\Program Files\\Maravek\\Vantelink\\VantelinkAgent.exe";
constexpr char kUninstallKey[] =
    "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VantelinkAgent";
constexpr char kRunKey[] = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr char kChild[] = "--from-service";
constexpr int kNextButton = 1;
constexpr int kUpdateButton = 101;

std::string bytes_of(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class InstallerTest : public RedirectTest {
 protected:
  static void SetUpTestSuite() {
    RedirectTest::SetUpTestSuite();
    make_package(kAgent, vlk::agent::kUpdateVersion, folder + "/old");
    make_package(newer_agent(), kNewVersion, folder + "/new");
    old_setup = folder + "/old/VantelinkSetup-" + vlk::agent::kUpdateVersion + ".exe";
    new_setup = folder + "/new/VantelinkSetup-" + kNewVersion + ".exe";
    installed = desk->folder() + "/prefix/drive_c/Program Files/Maravek/Vantelink/";
  }
  static void make_package(const std::string& agent, const std::string& version, const std::string& out) {
    run(VANTELINK_SOURCE_DIR "/packaging/make-package --agent '" + agent + "' --version " + version +
        " --out '" + out + "'");
  }
  static std::string newer_agent() {
    const std::string path = folder + "/newer.exe";
    std::string bytes = bytes_of(kAgent);
    const std::string old = vlk::agent::kUpdateVersion + std::string(1, '\0');
    const std::size_t at = bytes.find(old);
    if (at == std::string::npos || bytes.find(old, at + 1) != std::string::npos) {
      throw std::runtime_error("the executable does not hold its version once");
    }
    bytes.replace(at, old.size() - 1, kNewVersion);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  void TearDown() override {
    if (std::filesystem::exists(installed)) uninstall();
    RedirectTest::TearDown();
    forget_settings(*desk);
  }

  int setup(const std::string& program, std::vector<std::string> switches = {"/S"}) const {
    switches.insert(switches.begin(), program);
    return desk->exec(switches, {"SSL_CERT_FILE=" + folder + "/ca.pem", "VLK_DEBUG_INPUT=1"});
  }
  // With every file limited to half of the executable's size; the installer's exit status.
  static std::string setup_on_a_full_disk(const std::string& program) {
    const auto kilobytes = std::filesystem::file_size(kAgent) / 2 / 1024;
    return desk->host("trap '' XFSZ; ulimit -f " + std::to_string(kilobytes) + "; timeout 120 wine '" +
                      program + "' /S > /dev/null 2>&1 < /dev/null; echo $?");
  }
  // The uninstaller goes on in a copy of itself, so its folder tells when it is done.
  static void uninstall() {
    EXPECT_EQ(desk->exec({"C:\\Program Files\\Maravek\\Vantelink\\Uninstall.exe", "/S"}), 0);
    EXPECT_TRUE(eventually([] { return !std::filesystem::exists(installed); }));
  }

  static bool service_exists() { return desk->exec({"sc", "query", "VantelinkAgent"}) == 0; }
  static bool key_exists(const std::string& key) { return desk->exec({"reg", "query", key}) == 0; }
  static std::string installed_version() {
    const std::string text = desk->output({"reg", "query", kUninstallKey, "/v", "DisplayVersion"});
    return text.find(kNewVersion) != std::string::npos ? kNewVersion : vlk::agent::kUpdateVersion;
  }
  static bool installed_is(const std::string& agent) {
    return bytes_of(installed + "VantelinkAgent.exe") == bytes_of(agent);
  }

  static auto files_of_installation() {
    return std::distance(std::filesystem::directory_iterator(installed), {});
  }
  // Every file of the drive, but for what belongs to Windows and the copy in which an uninstaller runs.
  static std::set<std::string> files() {
    std::set<std::string> all;
    const std::string drive = desk->folder() + "/prefix/drive_c";
    for (const auto& entry : std::filesystem::recursive_directory_iterator(drive)) {
      const std::string name = entry.path().string().substr(drive.size());
      if (name.starts_with("/windows/") || name.find("/~nsu") != std::string::npos) continue;
      all.insert(name);
    }
    return all;
  }
  static std::set<std::string> added(const std::set<std::string>& before) {
    std::set<std::string> result;
    for (const std::string& name : files())
      if (!before.contains(name)) result.insert(name);
    return result;
  }

  inline static std::string old_setup, new_setup, installed;
};

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

TEST_F(InstallerTest, FullDiskLeavesNothingOfANewInstallation) {
  EXPECT_EQ(setup_on_a_full_disk(old_setup), "2");
  EXPECT_FALSE(std::filesystem::exists(installed));
  EXPECT_FALSE(service_exists());
  EXPECT_FALSE(key_exists(kUninstallKey));
}

}  // namespace
}  // namespace vantelink_test
