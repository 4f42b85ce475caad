// The stored settings: five values of one registry key of the current user.
#include "config/config.h"

#include "platform/text.h"
#include "platform/win32/handles_win32.h"
#include "platform/win32/registry_win32.h"

namespace vlk::agent {
namespace {

constexpr wchar_t kSettingsKey[] = L"Software\\Maravek\\Vantelink";
constexpr DWORD kComputerNameSize = 16;  // characters, including the terminating zero: the system's limit

std::string computer_name() {
  wchar_t name[kComputerNameSize] = {};
  DWORD length = kComputerNameSize;
  if (!GetComputerNameW(name, &length)) return "PC";
  return WideToUtf8({name, length});
}

}  // namespace

AgentConfig load_config() {
  AgentConfig config;
  config.display_name = computer_name();
  HKEY opened = nullptr;
  if (RegOpenKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, KEY_QUERY_VALUE, &opened) != ERROR_SUCCESS)
    return config;
  const UniqueRegistryKey key(opened);

  std::string display_name = read_registry_string(key.get(), L"DisplayName");
  if (!display_name.empty()) config.display_name = std::move(display_name);
  config.agent_id = read_registry_string(key.get(), L"AgentId");
  config.agent_secret = read_registry_string(key.get(), L"AgentSecret");
  config.skipped_version = read_registry_string(key.get(), L"SkippedVersion");

  // A value of any registry type is accepted if it has at most 4 bytes.
  DWORD unattended = 0;
  DWORD bytes = sizeof(unattended);
  if (RegQueryValueExW(key.get(), L"Unattended", nullptr, nullptr, reinterpret_cast<BYTE*>(&unattended),
                       &bytes) == ERROR_SUCCESS) {
    config.unattended = unattended != 0;
  }
  return config;
}

void save_config(const AgentConfig& config) {
  HKEY opened = nullptr;
  if (RegCreateKeyExW(HKEY_CURRENT_USER, kSettingsKey, 0, nullptr, 0, KEY_SET_VALUE, nullptr, &opened,
                      nullptr) != ERROR_SUCCESS) {
    return;
  }
  const UniqueRegistryKey key(opened);
  write_registry_string(key.get(), L"DisplayName", config.display_name);
  write_registry_string(key.get(), L"AgentId", config.agent_id);
  write_registry_string(key.get(), L"AgentSecret", config.agent_secret);
  write_registry_string(key.get(), L"SkippedVersion", config.skipped_version);
  const DWORD unattended = config.unattended ? 1 : 0;
  RegSetValueExW(key.get(), L"Unattended", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&unattended),
                 sizeof(unattended));
}

}  // namespace vlk::agent
