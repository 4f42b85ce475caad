// Makes packages, runs installers and lists files.
#include "e2e/support/installer_fixture.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "config/config.h"
#include "support/bytes/file_bytes.h"
#include "update/version.h"

namespace vantelink_test {
namespace {

constexpr int kRefusingPort = 0;  // the system refuses connections to it

void make_package(const std::string& agent, const std::string& version, const std::string& out,
                  const std::string& key) {
  run(VANTELINK_SOURCE_DIR "/packaging/make-package --agent '" + agent + "' --relay " +
      vlk::agent::default_server_host() + " --version " + version + " --out '" + out + "' --update-key '" +
      key + "'");
}

// Writes a copy of the executable in which the version number is the newer one.
void make_newer_agent(const std::string& path) {
  std::string bytes = file_bytes(kAgent);
  const std::string old = vlk::agent::kUpdateVersion + std::string(1, '\0');
  const std::size_t at = bytes.find(old);
  if (at == std::string::npos || bytes.find(old, at + 1) != std::string::npos) {
    throw std::runtime_error("the executable does not contain its version exactly once");
  }
  bytes.replace(at, old.size() - 1, kNewVersion);
  std::ofstream(path, std::ios::binary) << bytes;
}

}  // namespace

void InstallerTest::SetUpTestSuite() {
  RedirectTest::SetUpTestSuite();
  new_agent = folder + "/newer.exe";
  make_newer_agent(new_agent);
  const std::string key = folder + "/update-key.pem";
  if (!std::filesystem::exists(key)) run(VANTELINK_SOURCE_DIR "/packaging/make-update-key '" + key + "'");
  make_package(kAgent, vlk::agent::kUpdateVersion, folder + "/old", key);
  make_package(new_agent, kNewVersion, folder + "/new", key);
  old_setup = folder + "/old/VantelinkSetup-" + vlk::agent::kUpdateVersion + ".exe";
  new_setup = folder + "/new/VantelinkSetup-" + kNewVersion + ".exe";
  installed = desk->folder() + "/prefix/drive_c/Program Files/Maravek/Vantelink/";
}

void InstallerTest::TearDown() {
  if (std::filesystem::exists(installed)) uninstall();
  RedirectTest::TearDown();
  forget_settings(*desk);
}

int InstallerTest::setup(const std::string& program, std::vector<std::string> switches) const {
  const int port = redirected_port();
  redirect_to(kRefusingPort);
  const int status = setup_with_relay(program, std::move(switches));
  redirect_to(port);
  return status;
}

int InstallerTest::setup_with_relay(const std::string& program, std::vector<std::string> switches) const {
  switches.insert(switches.begin(), program);
  return desk->exec(switches, {"SSL_CERT_FILE=" + folder + "/ca.pem", "VLK_DEBUG_INPUT=1"});
}

std::string InstallerTest::setup_on_full_disk(const std::string& program) {
  // The limit is in blocks of 512 or 1024 bytes, depending on the shell, so it is a quarter or a half of the
  // executable.
  const auto blocks = std::filesystem::file_size(kAgent) / 2 / 1024;
  return desk->host("trap '' XFSZ; ulimit -f " + std::to_string(blocks) + "; SSL_CERT_FILE='" + folder +
                    "/ca.pem' timeout 120 wine '" + program + "' /S > /dev/null 2>&1 < /dev/null; echo $?");
}

void InstallerTest::add_disabled_service() {
  ASSERT_EQ(desk->exec({"sc", "create", "VantelinkAgent", "binPath=", "C:\\none.exe", "start=", "disabled"}),
            0);
}

void InstallerTest::set_run_entry(const std::string& command_line) {
  desk->output({"reg", "add", kRunKey, "/v", "VantelinkAgent", "/d", command_line, "/f"});
}

bool InstallerTest::run_entry_exists() {
  return desk->exec({"reg", "query", kRunKey, "/v", "VantelinkAgent"}) == 0;
}

void InstallerTest::uninstall() {
  EXPECT_EQ(desk->exec({"C:\\Program Files\\Maravek\\Vantelink\\Uninstall.exe", "/S"}), 0);
  // The uninstaller continues in a copy of itself, which removes the folder last.
  EXPECT_TRUE(eventually([] { return !std::filesystem::exists(installed); }));
}

bool InstallerTest::key_exists(const std::string& key) {
  return desk->exec({"reg", "query", key}) == 0;
}

std::string InstallerTest::installed_version() {
  const std::string text = desk->output({"reg", "query", kUninstallKey, "/v", "DisplayVersion"});
  return text.find(kNewVersion) != std::string::npos ? kNewVersion : vlk::agent::kUpdateVersion;
}

bool InstallerTest::installed_is(const std::string& agent) {
  return file_bytes(installed + "VantelinkAgent.exe") == file_bytes(agent);
}

int InstallerTest::installed_files() {
  return static_cast<int>(std::distance(std::filesystem::directory_iterator(installed), {}));
}

std::set<std::string> InstallerTest::files() {
  std::set<std::string> all;
  const std::string drive = desk->folder() + "/prefix/drive_c";
  for (const auto& entry : std::filesystem::recursive_directory_iterator(drive)) {
    const std::string name = entry.path().string().substr(drive.size());
    if (name.starts_with("/windows/") || name.find("/~nsu") != std::string::npos) continue;
    all.insert(name);
  }
  return all;
}

std::set<std::string> InstallerTest::added(const std::set<std::string>& before) {
  std::set<std::string> result;
  for (const std::string& name : files())
    if (!before.contains(name)) result.insert(name);
  return result;
}

}  // namespace vantelink_test
