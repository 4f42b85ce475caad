// The installer of this build and of a newer version, on a desk. Packages are made by the script that makes
// releases; the newer version is the same executable with another number in it.
#pragma once

#include <set>

#include "e2e/support/redirect_fixture.h"
#include "support/bytes/file_bytes.h"
#include "update/version.h"

#include <signal.h>

namespace vantelink_test {

inline constexpr char kNewVersion[] = "0.1.7";
inline constexpr char kInstalledPath[] = "C:\\Program Files\\Maravek\\Vantelink\\VantelinkAgent.exe";
inline constexpr char kUninstallKey[] =
    "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VantelinkAgent";
inline constexpr char kRunKey[] = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run";
inline constexpr char kChild[] = "--from-service";

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
    std::string bytes = file_bytes(kAgent);
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
    return desk->host("trap '' XFSZ; ulimit -f " + std::to_string(kilobytes) + "; SSL_CERT_FILE='" + folder +
                      "/ca.pem' timeout 120 wine '" + program + "' /S > /dev/null 2>&1 < /dev/null; echo $?");
  }
  // A service that Windows will not start.
  static void add_disabled_service() {
    ASSERT_EQ(
        desk->exec({"sc", "create", "VantelinkAgent", "binPath=", "C:\\none.exe", "start=", "disabled"}), 0);
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
    return file_bytes(installed + "VantelinkAgent.exe") == file_bytes(agent);
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

}  // namespace vantelink_test
