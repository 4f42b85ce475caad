// The settings in the real registry.
#include "config/config.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "platform/win32/handles_win32.h"
#include "platform/win32/registry_win32.h"
#include "tests/windows/support/holdings.h"
#include "tests/windows/support/registry_seam.h"
#include "tests/windows/support/seam.h"

namespace {

bool fail_computer_name = false;

BOOL WINAPI get_computer_name(LPWSTR buffer, LPDWORD size) {
  static auto* const system =
      vlk::test::real<BOOL WINAPI(LPWSTR, LPDWORD)>("kernel32.dll", "GetComputerNameW");
  return fail_computer_name ? FALSE : system(buffer, size);
}

}  // namespace

extern "C" {
void* __imp_GetComputerNameW = reinterpret_cast<void*>(get_computer_name);
}

namespace vlk::agent {
namespace {

constexpr wchar_t kKey[] = L"Software\\Maravek\\Vantelink";

class Config : public testing::Test {
 protected:
  void SetUp() override { RegDeleteTreeW(HKEY_CURRENT_USER, kKey); }
  void TearDown() override {
    fail_computer_name = false;
    test::registry = {};
    RegDeleteTreeW(HKEY_CURRENT_USER, kKey);
  }

  static UniqueRegistryKey Key() { return test::user_key(kKey); }

  static void Store(const wchar_t* name, DWORD type, const void* data, std::size_t size) {
    ASSERT_EQ(
        RegSetValueExW(Key().get(), name, 0, type, static_cast<const BYTE*>(data), static_cast<DWORD>(size)),
        ERROR_SUCCESS);
  }

  struct Value {
    LSTATUS status;
    DWORD type;
    std::vector<BYTE> bytes;
  };

  static Value Stored(const wchar_t* name) {
    Value value = {0, 0, std::vector<BYTE>(1024)};
    DWORD size = 1024;
    value.status = RegQueryValueExW(Key().get(), name, nullptr, &value.type, value.bytes.data(), &size);
    value.bytes.resize(value.status == ERROR_SUCCESS ? size : 0);
    return value;
  }

  static std::string ComputerName() {
    wchar_t name[64] = {};
    DWORD size = 64;
    GetComputerNameW(name, &size);
    return WideToUtf8({name, size});
  }
};

std::vector<BYTE> terminated_bytes(const std::wstring& text) {
  const auto* first = reinterpret_cast<const BYTE*>(text.c_str());
  return {first, first + (text.size() + 1) * sizeof(wchar_t)};
}

TEST_F(Config, SettingsOfTheFirstRunHaveTheComputerNameAndNoIdentity) {
  const AgentConfig config = load_config();
  EXPECT_FALSE(ComputerName().empty());
  EXPECT_EQ(config.display_name, ComputerName());
  EXPECT_EQ(config.agent_id, "");
  EXPECT_EQ(config.agent_secret, "");
  EXPECT_EQ(config.skipped_version, "");
  EXPECT_EQ(config.server_host, "");
  EXPECT_EQ(config.server_port, 0u);
  EXPECT_FALSE(config.unattended);
}

TEST_F(Config, LoadingTheSettingsCreatesNoRegistryKey) {
  EXPECT_EQ(load_config().agent_id, "");
  HKEY key = nullptr;
  EXPECT_EQ(RegOpenKeyExW(HKEY_CURRENT_USER, kKey, 0, KEY_QUERY_VALUE, &key), ERROR_FILE_NOT_FOUND);
}

TEST_F(Config, ComputerWithoutANameIsNamedPC) {
  fail_computer_name = true;
  EXPECT_EQ(load_config().display_name, "PC");
}

TEST_F(Config, EmptyDisplayNameLoadsAsTheComputerNameWhileAnEmptyIdentityStaysEmpty) {
  Store(L"DisplayName", REG_SZ, L"", 2);
  Store(L"AgentId", REG_SZ, L"", 2);
  EXPECT_EQ(load_config().display_name, ComputerName());
  EXPECT_EQ(load_config().agent_id, "");
}

TEST_F(Config, DisplayNameOfAnotherRegistryTypeCountsAsMissing) {
  const DWORD number = 7;
  Store(L"DisplayName", REG_DWORD, &number, sizeof(number));
  EXPECT_EQ(load_config().display_name, ComputerName());
  Store(L"DisplayName", REG_EXPAND_SZ, L"Esja", 10);
  EXPECT_EQ(load_config().display_name, ComputerName());
}

TEST_F(Config, EverySavedFieldIsLoadedAgain) {
  AgentConfig config;
  config.display_name = "Þórunn \xF0\x9F\x9A\xA2";
  config.unattended = true;
  config.agent_id = "agent-4294967295";
  config.agent_secret = "s\"e\\cret";
  config.skipped_version = "1.20.3";
  save_config(config);
  const AgentConfig loaded = load_config();
  EXPECT_EQ(loaded.display_name, config.display_name);
  EXPECT_TRUE(loaded.unattended);
  EXPECT_EQ(loaded.agent_id, config.agent_id);
  EXPECT_EQ(loaded.agent_secret, config.agent_secret);
  EXPECT_EQ(loaded.skipped_version, config.skipped_version);
}

TEST_F(Config, SavedTextIsUtf16WithATerminator) {
  AgentConfig config;
  config.display_name = "Ægir";
  save_config(config);
  const Value value = Stored(L"DisplayName");
  EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(value.bytes, terminated_bytes(L"\x00C6gir"));
}

TEST_F(Config, EmptyTextsAreWrittenAndLoadedAsEmpty) {
  AgentConfig before;
  before.skipped_version = "2.0";
  save_config(before);
  save_config(AgentConfig());
  const Value value = Stored(L"SkippedVersion");
  EXPECT_EQ(value.status, ERROR_SUCCESS);
  EXPECT_EQ(value.type, static_cast<DWORD>(REG_SZ));
  EXPECT_EQ(value.bytes, terminated_bytes(L""));
  EXPECT_EQ(load_config().skipped_version, "");
}

TEST_F(Config, UnattendedAccessIsStoredAsADwordOfOneOrZero) {
  AgentConfig config;
  config.unattended = true;
  save_config(config);
  EXPECT_EQ(Stored(L"Unattended").type, static_cast<DWORD>(REG_DWORD));
  EXPECT_EQ(Stored(L"Unattended").bytes, (std::vector<BYTE>{1, 0, 0, 0}));
  config.unattended = false;
  save_config(config);
  EXPECT_EQ(Stored(L"Unattended").bytes, (std::vector<BYTE>{0, 0, 0, 0}));
}

TEST_F(Config, UnattendedAccessIsReadFromAValueOfAnyTypeOfAtMostFourBytes) {
  const DWORD flag = 0x100;
  Store(L"Unattended", REG_DWORD, &flag, sizeof(flag));
  EXPECT_TRUE(load_config().unattended);
  Store(L"Unattended", REG_BINARY, &flag, sizeof(flag));
  EXPECT_TRUE(load_config().unattended);
  const unsigned long long wide = 1;
  Store(L"Unattended", REG_QWORD, &wide, sizeof(wide));
  EXPECT_FALSE(load_config().unattended);
}

TEST_F(Config, ValuesAreWrittenInAFixedOrder) {
  save_config(AgentConfig());
  EXPECT_EQ(test::registry.written_names,
            (std::vector<std::wstring>{L"DisplayName", L"AgentId", L"AgentSecret", L"SkippedVersion",
                                       L"Unattended"}));
}

TEST_F(Config, ServerOfTheCommandLineIsNotSaved) {
  AgentConfig config;
  config.server_host = "relay.test";
  config.server_port = 8443;
  save_config(config);
  DWORD values = 0;
  DWORD subkeys = 0;
  RegQueryInfoKeyW(Key().get(), nullptr, nullptr, nullptr, &subkeys, nullptr, nullptr, &values, nullptr,
                   nullptr, nullptr, nullptr);
  EXPECT_EQ(values, 5u);
  EXPECT_EQ(subkeys, 0u);
  EXPECT_EQ(load_config().server_host, "");
  EXPECT_EQ(load_config().server_port, 0u);
}

TEST_F(Config, EachSaveOverwritesEveryValue) {
  AgentConfig window = load_config();
  AgentConfig client = window;
  client.agent_id = "17";
  client.agent_secret = "fresh";
  save_config(client);
  window.skipped_version = "3.1";
  save_config(window);
  EXPECT_EQ(load_config().agent_id, "");
  EXPECT_EQ(load_config().skipped_version, "3.1");
  save_config(client);
  EXPECT_EQ(load_config().agent_id, "17");
  EXPECT_EQ(load_config().skipped_version, "");
}

TEST_F(Config, SavingFailsSilentlyIfTheRegistryKeyCannotBeOpened) {
  AgentConfig config;
  config.agent_id = "kept";
  save_config(config);
  config.agent_id = "lost";
  test::registry.fail_create = true;
  save_config(config);
  test::registry.fail_create = false;
  EXPECT_EQ(load_config().agent_id, "kept");
}

TEST_F(Config, OnlyOneTerminatorOfAStoredTextIsRemoved) {
  Store(L"AgentId", REG_SZ, L"a\0\0", 8);
  EXPECT_EQ(load_config().agent_id, std::string("a\0\0", 3));
  Store(L"AgentId", REG_SZ, L"ab", 4);  // stored without a terminator
  EXPECT_EQ(load_config().agent_id, "ab");
}

TEST_F(Config, StoredTextsOfZeroOrOddLengthAreReadAsEmpty) {
  Store(L"AgentId", REG_SZ, L"", 0);
  EXPECT_EQ(load_config().agent_id, "");
  Store(L"AgentId", REG_SZ, "a", 1);
  EXPECT_EQ(load_config().agent_id, "");
}

TEST_F(Config, MissingRegistryValueIsReadAsEmpty) {
  EXPECT_EQ(read_registry_string(Key().get(), L"NoSuchValue"), "");
  write_registry_string(Key().get(), L"Other", "x");
  EXPECT_EQ(read_registry_string(Key().get(), L"Other"), "x");
}

TEST_F(Config, LoadingAndSavingLeaveNoHandleOpen) {
  EXPECT_EQ(test::left_open_by([] { save_config(load_config()); }).handles, 0u);
}

TEST(Text, EmptyTextStaysEmptyAndInvalidBytesAreReplaced) {
  EXPECT_EQ(Utf8ToWide(""), L"");
  EXPECT_EQ(WideToUtf8(L""), "");
  EXPECT_EQ(Utf8ToWide("a\xFFz"), L"a\xFFFDz");
  EXPECT_EQ(WideToUtf8(L"a\xD800z"), "a\xEF\xBF\xBDz");
}

TEST(Text, CharactersAndZerosAreUnchangedAfterConversionToUtf16AndBack) {
  const std::string text("a\0\xC3\xA6\xE2\x82\xAC\xF0\x9F\x9A\xA2", 11);
  EXPECT_EQ(Utf8ToWide(text).size(), 6u);
  EXPECT_EQ(WideToUtf8(Utf8ToWide(text)), text);
}

}  // namespace
}  // namespace vlk::agent
