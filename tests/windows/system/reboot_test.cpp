// The restart of the machine, tested with replaced system calls that record each call and restart nothing.
#include "system/reboot.h"

#include <windows.h>

#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/seam.h"

namespace {

using Lines = std::vector<std::string>;

Lines calls;
std::string log_at_exit;  // the debug log at the moment of ExitWindowsEx
std::set<std::string> failing;

BOOL answer(const std::string& name, const std::string& call) {
  calls.push_back(call);
  return !failing.contains(name);
}

BOOL WINAPI open_token(HANDLE process, DWORD access, PHANDLE token) {
  static auto* const system = vlk::test::real<decltype(open_token)>("advapi32.dll", "OpenProcessToken");
  EXPECT_EQ(process, GetCurrentProcess());
  return answer("open", "OpenProcessToken " + std::to_string(access)) && system(process, access, token);
}

BOOL WINAPI look_up(LPCWSTR machine, LPCWSTR name, PLUID luid) {
  EXPECT_EQ(machine, nullptr);
  EXPECT_STREQ(name, L"SeShutdownPrivilege");
  *luid = {19, 7};
  return answer("look_up", "LookupPrivilegeValue");
}

BOOL WINAPI adjust(HANDLE token, BOOL none, PTOKEN_PRIVILEGES privileges, DWORD size,
                   PTOKEN_PRIVILEGES previous, PDWORD needed) {
  EXPECT_NE(token, nullptr);
  EXPECT_TRUE(!none && size == 0 && previous == nullptr && needed == nullptr);
  EXPECT_EQ(privileges->PrivilegeCount, 1u);
  const LUID_AND_ATTRIBUTES& one = privileges->Privileges[0];
  return answer("adjust", "AdjustTokenPrivileges " + std::to_string(one.Luid.LowPart) + ' ' +
                              std::to_string(one.Luid.HighPart) + ' ' + std::to_string(one.Attributes));
}

BOOL WINAPI exit_windows(UINT flags, DWORD reason) {
  log_at_exit = vlk::test::debug_log();
  return answer("exit", "ExitWindowsEx " + std::to_string(flags) + ' ' + std::to_string(reason));
}

}  // namespace

extern "C" {
void* __imp_OpenProcessToken = reinterpret_cast<void*>(open_token);
void* __imp_LookupPrivilegeValueW = reinterpret_cast<void*>(look_up);
void* __imp_AdjustTokenPrivileges = reinterpret_cast<void*>(adjust);
void* __imp_ExitWindowsEx = reinterpret_cast<void*>(exit_windows);
}

namespace vlk::agent {
namespace {

const Lines kWhole = {"OpenProcessToken 40", "LookupPrivilegeValue", "AdjustTokenPrivileges 19 7 2",
                      "ExitWindowsEx 18 262145"};

class Reboot : public testing::Test {
 protected:
  void SetUp() override {
    calls.clear();
    failing.clear();
    SetEnvironmentVariableA("VLK_SIMULATE_REBOOT", nullptr);
    test::remove_debug_log();
  }
  void TearDown() override { SetUp(); }
};

TEST_F(Reboot, EnablesTheShutdownPrivilegeAndRequestsARestart) {
  EXPECT_FALSE(reboot_machine());
  EXPECT_EQ(calls, kWhole);
  EXPECT_EQ(test::debug_log(), "reboot: requested (simulate=0)\n");
}

TEST_F(Reboot, IsSimulatedIfTheEnvironmentVariableIsSet) {
  for (const std::string& value : {std::string("1"), std::string("0"), std::string("1234567"),
                                   std::string("12345678"), std::string(5000, 'x')}) {
    test::remove_debug_log();
    SetEnvironmentVariableA("VLK_SIMULATE_REBOOT", value.c_str());
    EXPECT_TRUE(reboot_machine()) << value.size();
    EXPECT_EQ(test::debug_log(), "reboot: requested (simulate=1)\n");
  }
  EXPECT_EQ(calls, Lines());
}

TEST_F(Reboot, IsRequestedEvenIfTheEarlierStepsFail) {
  failing = {"open"};
  EXPECT_FALSE(reboot_machine());
  EXPECT_EQ(calls, (Lines{"OpenProcessToken 40", "ExitWindowsEx 18 262145"}));
  failing = {"look_up", "adjust", "exit"};
  calls.clear();
  EXPECT_FALSE(reboot_machine());
  EXPECT_EQ(calls, kWhole);
}

TEST_F(Reboot, IsLoggedBeforeItIsRequested) {
  log_at_exit.clear();
  (void)reboot_machine();
  EXPECT_EQ(log_at_exit, "reboot: requested (simulate=0)\n");
  (void)reboot_machine();
  EXPECT_EQ(log_at_exit, "reboot: requested (simulate=0)\nreboot: requested (simulate=0)\n");
}

}  // namespace
}  // namespace vlk::agent
