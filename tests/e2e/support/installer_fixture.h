// Runs the installers of this build's agent and of a newer agent on a desk. Packages are made by the script
// that makes releases. The newer agent is the same executable with another version number in it.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "e2e/support/redirect_fixture.h"

namespace vantelink_test {

inline constexpr char kNewVersion[] = "0.1.7";
inline constexpr char kInstalledPath[] = "C:\\Program Files\\Maravek\\Vantelink\\VantelinkAgent.exe";
inline constexpr char kUninstallKey[] =
    "HKLM\\Software\\Microsoft\\Windows\\CurrentVersion\\Uninstall\\VantelinkAgent";
inline constexpr char kRunKey[] = "HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Run";

class InstallerTest : public RedirectTest {
 protected:
  static void SetUpTestSuite();
  // Removes the installation, the agent's settings and all agents.
  void TearDown() override;

  // Runs the installer and returns its exit status. Meanwhile connections to the relay are refused, so that a
  // new installation does not wait for an answer of the scripted server.
  int setup(const std::string& program, std::vector<std::string> switches = {"/S"}) const;
  // Runs the installer while the relay accepts connections.
  int setup_with_relay(const std::string& program, std::vector<std::string> switches = {"/S"}) const;
  // Runs the installer with every file limited to less than the executable's size; returns the exit status as
  // text.
  static std::string setup_on_full_disk(const std::string& program);
  // Adds a service that has the name of the agent's service and that Windows refuses to start.
  static void add_disabled_service();
  // Sets the autostart entry of the agent.
  static void set_run_entry(const std::string& command_line);
  [[nodiscard]] static bool run_entry_exists();
  static void uninstall();

  [[nodiscard]] static bool key_exists(const std::string& key);
  // The version in the uninstaller's registry entry.
  static std::string installed_version();
  // Whether the installed executable has the same bytes as the file `agent`.
  [[nodiscard]] static bool installed_is(const std::string& agent);
  // The number of files in the installation's folder.
  static int installed_files();
  // All files of drive C except the files of Windows and the temporary copy of the uninstaller.
  static std::set<std::string> files();
  // The files that were added since `before` was listed.
  static std::set<std::string> added(const std::set<std::string>& before);

  inline static std::string old_setup, new_setup;  // the installers
  inline static std::string new_agent;             // the newer executable
  inline static std::string installed;             // the folder of the installation, ending in a slash
};

}  // namespace vantelink_test
