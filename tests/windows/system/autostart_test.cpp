// The autostart entry in the real registry.
#include "system/autostart.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/support/holdings.h"
#include "tests/windows/support/registry_seam.h"

namespace vlk::agent {
namespace {

constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

class Autostart : public testing::Test {
 protected:
  void SetUp() override {
    run_ = test::user_key(kRunKey);
    RegDeleteValueW(run_.get(), L"VantelinkAgent");
  }
  void TearDown() override {
    test::registry = {};
    RegDeleteValueW(run_.get(), L"VantelinkAgent");
    RegDeleteValueW(run_.get(), L"Other");
  }

  void Store(const wchar_t* name, const std::wstring& text) {
    RegSetValueExW(run_.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }

  // The value's characters, terminator included; empty if there is no value.
  std::wstring Stored(const wchar_t* name, DWORD* type = nullptr) {
    wchar_t text[600] = {};
    DWORD size = sizeof(text);
    if (RegQueryValueExW(run_.get(), name, nullptr, type, reinterpret_cast<BYTE*>(text), &size) !=
        ERROR_SUCCESS) {
      return {};
    }
    return {text, size / sizeof(wchar_t)};
  }

  UniqueRegistryKey run_;
};

std::wstring own_command() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  const std::wstring command = L"\"" + std::wstring(path) + L"\" --unattended";
  return command + std::wstring(1, L'\0');
}

TEST_F(Autostart, EntryDoesNotExistWithoutARegistryValue) {
  EXPECT_FALSE(autostart_exists());
}

TEST_F(Autostart, AddedEntryStartsThisExecutable) {
  EXPECT_TRUE(add_autostart());
  EXPECT_TRUE(autostart_exists());
  DWORD type = 0;
  EXPECT_EQ(Stored(L"VantelinkAgent", &type), own_command());
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
}

TEST_F(Autostart, EntryForAnotherPathCountsAsExisting) {
  Store(L"VantelinkAgent", L"\"C:\\elsewhere\\VantelinkAgent.exe\" --unattended");
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, EntryOfAnyRegistryTypeCountsAsExisting) {
  const DWORD number = 0;
  RegSetValueExW(run_.get(), L"VantelinkAgent", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4);
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, RemovingTheEntryLeavesOtherEntries) {
  Store(L"Other", L"kept");
  ASSERT_TRUE(add_autostart());
  EXPECT_TRUE(remove_autostart());
  EXPECT_FALSE(autostart_exists());
  EXPECT_EQ(Stored(L"Other"), std::wstring(L"kept\0", 5));
}

TEST_F(Autostart, RemovingAMissingEntrySucceeds) {
  Store(L"Other", L"kept");
  EXPECT_TRUE(remove_autostart());
  EXPECT_EQ(Stored(L"Other"), std::wstring(L"kept\0", 5));
}

TEST_F(Autostart, RegistryKeyThatCannotBeOpenedCountsAsHavingNoEntry) {
  ASSERT_TRUE(add_autostart());
  test::registry.fail_open = true;
  EXPECT_FALSE(autostart_exists());
  EXPECT_TRUE(remove_autostart());
  test::registry.fail_open = false;
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, FailureToWriteTheEntryIsReported) {
  test::registry.fail_create = true;
  EXPECT_FALSE(add_autostart());
  test::registry.fail_create = false;
  test::registry.fail_set = true;
  EXPECT_FALSE(add_autostart());
  EXPECT_FALSE(autostart_exists());
}

TEST_F(Autostart, NoHandleIsLeftOpen) {
  const test::Holdings left = test::left_open_by([] {
    EXPECT_TRUE(add_autostart());
    EXPECT_TRUE(autostart_exists());
    EXPECT_TRUE(remove_autostart());
  });
  EXPECT_EQ(left.handles, 0u);
}

}  // namespace
}  // namespace vlk::agent
