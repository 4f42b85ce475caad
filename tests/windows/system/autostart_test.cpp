// The autostart entry in the real registry.
#include "system/autostart.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32/handles_win32.h"
#include "tests/windows/support/painted_window.h"
#include "tests/windows/support/seam.h"

namespace {

bool fail_open = false;
bool fail_create = false;
bool fail_set = false;

LSTATUS WINAPI open_key(HKEY key, LPCWSTR name, DWORD options, REGSAM access, PHKEY result) {
  static auto* const system = vlk::test::real<decltype(open_key)>("advapi32.dll", "RegOpenKeyExW");
  return fail_open ? ERROR_ACCESS_DENIED : system(key, name, options, access, result);
}

LSTATUS WINAPI create_key(HKEY key, LPCWSTR name, DWORD reserved, LPWSTR type, DWORD options, REGSAM access,
                          LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition) {
  static auto* const system = vlk::test::real<decltype(create_key)>("advapi32.dll", "RegCreateKeyExW");
  if (fail_create) return ERROR_ACCESS_DENIED;
  return system(key, name, reserved, type, options, access, security, result, disposition);
}

LSTATUS WINAPI set_value(HKEY key, LPCWSTR name, DWORD reserved, DWORD type, const BYTE* data, DWORD size) {
  static auto* const system = vlk::test::real<decltype(set_value)>("advapi32.dll", "RegSetValueExW");
  return fail_set ? ERROR_ACCESS_DENIED : system(key, name, reserved, type, data, size);
}

}  // namespace

extern "C" {
void* __imp_RegOpenKeyExW = reinterpret_cast<void*>(open_key);
void* __imp_RegCreateKeyExW = reinterpret_cast<void*>(create_key);
void* __imp_RegSetValueExW = reinterpret_cast<void*>(set_value);
}

namespace vlk::agent {
namespace {

constexpr wchar_t kRunKey[] = L"Software\\Microsoft\\Windows\\CurrentVersion\\Run";

class Autostart : public testing::Test {
 protected:
  void SetUp() override {
    HKEY key = nullptr;
    RegCreateKeyExW(HKEY_CURRENT_USER, kRunKey, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &key, nullptr);
    run_.reset(key);
    RegDeleteValueW(run_.get(), L"VantelinkAgent");
  }
  void TearDown() override {
    fail_open = fail_create = fail_set = false;
    RegDeleteValueW(run_.get(), L"VantelinkAgent");
    RegDeleteValueW(run_.get(), L"Other");
  }

  void Store(const wchar_t* name, const std::wstring& text) {
    RegSetValueExW(run_.get(), name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                   static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
  }

  // The value's characters, its closing zero included; empty when there is none.
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

TEST_F(Autostart, NoValueMeansNoEntry) {
  EXPECT_FALSE(autostart_exists());
}

TEST_F(Autostart, AddPointsTheEntryAtThisExecutable) {
  EXPECT_TRUE(add_autostart());
  EXPECT_TRUE(autostart_exists());
  DWORD type = 0;
  EXPECT_EQ(Stored(L"VantelinkAgent", &type), own_command());
  EXPECT_EQ(type, static_cast<DWORD>(REG_SZ));
}

TEST_F(Autostart, AnEntryForAnotherPathExists) {
  Store(L"VantelinkAgent", L"\"C:\\elsewhere\\VantelinkAgent.exe\" --unattended");
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, AnEntryOfAnyTypeExists) {
  const DWORD number = 0;
  RegSetValueExW(run_.get(), L"VantelinkAgent", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number), 4);
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, RemoveTakesTheEntryAlone) {
  Store(L"Other", L"kept");
  add_autostart();
  EXPECT_TRUE(remove_autostart());
  EXPECT_FALSE(autostart_exists());
  EXPECT_EQ(Stored(L"Other"), std::wstring(L"kept\0", 5));
}

TEST_F(Autostart, RemovingWhatIsNotThereTouchesNothing) {
  Store(L"Other", L"kept");
  EXPECT_TRUE(remove_autostart());
  EXPECT_EQ(Stored(L"Other"), std::wstring(L"kept\0", 5));
}

TEST_F(Autostart, KeyThatCannotBeOpenedHasNoEntryAndCountsAsRemoved) {
  add_autostart();
  fail_open = true;
  EXPECT_FALSE(autostart_exists());
  EXPECT_TRUE(remove_autostart());
  fail_open = false;
  EXPECT_TRUE(autostart_exists());
}

TEST_F(Autostart, FailedWriteIsReported) {
  fail_create = true;
  EXPECT_FALSE(add_autostart());
  fail_create = false;
  fail_set = true;
  EXPECT_FALSE(add_autostart());
  EXPECT_FALSE(autostart_exists());
}

TEST_F(Autostart, NothingIsLeftOpen) {
  const auto all = [] { add_autostart(), autostart_exists(), remove_autostart(); };
  for (int i = 0; i < 3; ++i)
    all();
  const DWORD before = test::kernel_handles();
  for (int i = 0; i < 200; ++i)
    all();
  EXPECT_EQ(test::kernel_handles(), before);
}

}  // namespace
}  // namespace vlk::agent
