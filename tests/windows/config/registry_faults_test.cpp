// The settings, the machine's identifier and the autostart entry with each call of the registry and of the
// system failing in turn: what is read then, and what is stored.
#include <windows.h>

#include <string>

#include <gtest/gtest.h>

#include "config/config.h"
#include "config/machine_guid.h"
#include "platform/text.h"
#include "system/autostart.h"
#include "tests/windows/support/counted_calls.h"

VLK_COUNTED("kernel32.dll", GetComputerNameW, FALSE, ERROR_BUFFER_OVERFLOW)
VLK_COUNTED("kernel32.dll", GetModuleFileNameW, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", MultiByteToWideChar, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", WideCharToMultiByte, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("advapi32.dll", RegOpenKeyExW, ERROR_ACCESS_DENIED, 0)
VLK_COUNTED("advapi32.dll", RegCreateKeyExW, ERROR_ACCESS_DENIED, 0)
VLK_COUNTED("advapi32.dll", RegQueryValueExW, ERROR_NOT_ENOUGH_MEMORY, 0)
VLK_COUNTED("advapi32.dll", RegSetValueExW, ERROR_ACCESS_DENIED, 0)
VLK_COUNTED("advapi32.dll", RegDeleteValueW, ERROR_ACCESS_DENIED, 0)

namespace vlk::agent {
namespace {

constexpr wchar_t kKey[] = L"Software\\Maravek\\Vantelink";
constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";
constexpr wchar_t kEntry[] = L"VantelinkAgent";

std::string visible(std::string text) {
  for (char& character : text)
    if (character == '\0') character = '.';
  return text;
}

std::string described(const AgentConfig& config) {
  return visible(config.display_name + '|' + config.agent_id + '|' + config.agent_secret + '|' +
                 config.skipped_version + '|' + (config.unattended ? "yes" : "no"));
}

AgentConfig settings(const std::string& name, const std::string& id, const std::string& secret,
                     const std::string& skipped, bool unattended) {
  AgentConfig config;
  config.display_name = name;
  config.agent_id = id;
  config.agent_secret = secret;
  config.skipped_version = skipped;
  config.unattended = unattended;
  return config;
}

std::string computer_name() {
  wchar_t name[64] = {};
  DWORD size = 64;
  GetComputerNameW(name, &size);
  return WideToUtf8({name, size});
}

// The command of the autostart entry; "none" without an entry.
std::string entry() {
  wchar_t text[600] = {};
  DWORD size = sizeof text;
  if (RegGetValueW(HKEY_CURRENT_USER, kRunKey, kEntry, RRF_RT_REG_SZ, nullptr, text, &size) != ERROR_SUCCESS)
    return "none";
  return WideToUtf8(text);
}

class RegistryFaults : public testing::Test {
 protected:
  void SetUp() override { remove(); }
  void TearDown() override { remove(); }

  static void remove() {
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
    RegDeleteKeyValueW(HKEY_CURRENT_USER, kRunKey, kEntry);
  }

  static void expect_effects(const std::function<void()>& prepare, const std::function<void()>& work,
                             const std::function<std::string()>& result, const std::string& usual,
                             const test::Effects& effects, int calls) {
    EXPECT_EQ(test::expect_effects(
                  {.prepare = prepare, .work = work, .result = result, .usual = usual, .effects = effects}),
              calls);
  }

  static void nothing() {}
};

TEST_F(RegistryFaults, LoadedSettingThatCannotBeReadIsEmptyOrZeros) {
  save_config(settings("Esja", "17", "key", "1.20", true));
  AgentConfig loaded;
  expect_effects(
      nothing, [&] { loaded = load_config(); }, [&] { return described(loaded); }, "Esja|17|key|1.20|yes",
      {{"RegOpenKeyExW 1", computer_name() + "||||no"},
       {"RegQueryValueExW 1", computer_name() + "|17|key|1.20|yes"},
       {"RegQueryValueExW 2", "....|17|key|1.20|yes"},
       {"RegQueryValueExW 3", "Esja||key|1.20|yes"},
       {"RegQueryValueExW 4", "Esja|..|key|1.20|yes"},
       {"RegQueryValueExW 5", "Esja|17||1.20|yes"},
       {"RegQueryValueExW 6", "Esja|17|...|1.20|yes"},
       {"RegQueryValueExW 7", "Esja|17|key||yes"},
       {"RegQueryValueExW 8", "Esja|17|key|....|yes"},
       {"RegQueryValueExW 9", "Esja|17|key|1.20|no"},
       {"WideCharToMultiByte 3", computer_name() + "|17|key|1.20|yes"},
       {"WideCharToMultiByte 4", "....|17|key|1.20|yes"},
       {"WideCharToMultiByte 5", "Esja||key|1.20|yes"},
       {"WideCharToMultiByte 6", "Esja|..|key|1.20|yes"},
       {"WideCharToMultiByte 7", "Esja|17||1.20|yes"},
       {"WideCharToMultiByte 8", "Esja|17|...|1.20|yes"},
       {"WideCharToMultiByte 9", "Esja|17|key||yes"},
       {"WideCharToMultiByte 10", "Esja|17|key|....|yes"}},
      21);
}

TEST_F(RegistryFaults, SettingsOfTheFirstRunHaveAnotherNameIfTheComputersCannotBeRead) {
  AgentConfig loaded;
  const std::string zeros(computer_name().size(), '.');
  expect_effects(
      nothing, [&] { loaded = load_config(); }, [&] { return described(loaded); }, computer_name() + "||||no",
      {{"GetComputerNameW 1", "PC||||no"},
       {"WideCharToMultiByte 1", "||||no"},
       {"WideCharToMultiByte 2", zeros + "||||no"}},
      4);
}

TEST_F(RegistryFaults, SettingThatCannotBeWrittenKeepsItsOldValue) {
  expect_effects([] { save_config(settings("Esja", "17", "key", "1.20", false)); },
                 [] { save_config(settings("Hekla", "183", "secret", "2.0", true)); },
                 [] { return described(load_config()); }, "Hekla|183|secret|2.0|yes",
                 {{"RegCreateKeyExW 1", "Esja|17|key|1.20|no"},
                  {"RegSetValueExW 1", "Esja|183|secret|2.0|yes"},
                  {"RegSetValueExW 2", "Hekla|17|secret|2.0|yes"},
                  {"RegSetValueExW 3", "Hekla|183|key|2.0|yes"},
                  {"RegSetValueExW 4", "Hekla|183|secret|1.20|yes"},
                  {"RegSetValueExW 5", "Hekla|183|secret|2.0|no"},
                  {"MultiByteToWideChar 1", computer_name() + "|183|secret|2.0|yes"},
                  {"MultiByteToWideChar 2", ".....|183|secret|2.0|yes"},
                  {"MultiByteToWideChar 3", "Hekla||secret|2.0|yes"},
                  {"MultiByteToWideChar 4", "Hekla|...|secret|2.0|yes"},
                  {"MultiByteToWideChar 5", "Hekla|183||2.0|yes"},
                  {"MultiByteToWideChar 6", "Hekla|183|......|2.0|yes"},
                  {"MultiByteToWideChar 7", "Hekla|183|secret||yes"},
                  {"MultiByteToWideChar 8", "Hekla|183|secret|...|yes"}},
                 14);
}

TEST_F(RegistryFaults, MachinesIdentifierThatCannotBeReadIsEmptyOrZeros) {
  const std::string usual = read_machine_guid();
  ASSERT_EQ(usual.size(), 36u);
  const std::string zeros(usual.size(), '.');
  std::string identifier;
  expect_effects(
      nothing, [&] { identifier = read_machine_guid(); }, [&] { return visible(identifier); }, usual,
      {{"RegOpenKeyExW 1", ""},
       {"RegQueryValueExW 1", ""},
       {"RegQueryValueExW 2", zeros},
       {"WideCharToMultiByte 1", ""},
       {"WideCharToMultiByte 2", zeros}},
      5);
}

TEST_F(RegistryFaults, AutostartEntryThatCannotBeReadDoesNotExist) {
  ASSERT_TRUE(add_autostart());
  bool exists = false;
  expect_effects(
      nothing, [&] { exists = autostart_exists(); }, [&] { return exists ? "exists" : "none"; }, "exists",
      {{"RegOpenKeyExW 1", "none"}, {"RegQueryValueExW 1", "none"}}, 2);
}

TEST_F(RegistryFaults, AutostartEntryThatCannotBeWrittenIsReported) {
  ASSERT_TRUE(add_autostart());
  const std::string usual = entry();
  bool added = false;
  expect_effects(
      remove, [&] { added = add_autostart(); }, [&] { return (added ? "added " : "failed ") + entry(); },
      "added " + usual,
      {{"RegCreateKeyExW 1", "failed none"},
       {"RegSetValueExW 1", "failed none"},
       {"GetModuleFileNameW 1", "added \"\" --unattended"}},
      3);
}

TEST_F(RegistryFaults, AutostartEntryThatCannotBeRemovedStays) {
  ASSERT_TRUE(add_autostart());
  const std::string usual = entry();
  bool removed = false;
  expect_effects([] { ASSERT_TRUE(add_autostart()); }, [&] { removed = remove_autostart(); },
                 [&] { return (removed ? "removed " : "failed ") + entry(); }, "removed none",
                 {{"RegOpenKeyExW 1", "removed " + usual}, {"RegDeleteValueW 1", "removed " + usual}}, 2);
}

}  // namespace
}  // namespace vlk::agent
