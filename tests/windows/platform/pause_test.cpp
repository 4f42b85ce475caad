// The pause between two frames: the kind of timer that Windows is asked for, and what happens without one.
#include "platform/pause.h"

#include <windows.h>

#include <chrono>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/windows/support/seam.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

enum class Failing { Nothing, Creation, Setting, Waiting };
Failing failing = Failing::Nothing;
std::vector<DWORD> asked_flags;

HANDLE WINAPI create_timer(SECURITY_ATTRIBUTES* attributes, const wchar_t* name, DWORD flags, DWORD access) {
  asked_flags.push_back(flags);
  if (failing == Failing::Creation) return nullptr;
  return vlk::test::real<decltype(create_timer)>("kernel32.dll", "CreateWaitableTimerExW")(attributes, name,
                                                                                           flags, access);
}

BOOL WINAPI set_timer(HANDLE timer, const LARGE_INTEGER* due, LONG period, PTIMERAPCROUTINE routine,
                      void* argument, BOOL resume) {
  if (failing == Failing::Setting) return FALSE;
  return vlk::test::real<decltype(set_timer)>("kernel32.dll", "SetWaitableTimer")(timer, due, period, routine,
                                                                                  argument, resume);
}

DWORD WINAPI wait_for(HANDLE object, DWORD timeout) {
  // Only the first wait fails, because the library's sleep waits too.
  if (std::exchange(failing, Failing::Nothing) == Failing::Waiting) return WAIT_FAILED;
  return vlk::test::real<decltype(wait_for)>("kernel32.dll", "WaitForSingleObject")(object, timeout);
}

steady_clock::duration pause(milliseconds time) {
  const auto start = steady_clock::now();
  vlk::pause_for(std::chrono::nanoseconds(time).count());
  return steady_clock::now() - start;
}

class PauseTest : public testing::TestWithParam<Failing> {
 protected:
  void SetUp() override { asked_flags.clear(); }
  void TearDown() override { failing = Failing::Nothing; }
};

TEST_F(PauseTest, AsksForATimerOfHighResolution) {
  pause(milliseconds(1));
  EXPECT_EQ(asked_flags, std::vector<DWORD>{0x2});
}

TEST_F(PauseTest, LeavesNoTimerOpen) {
  pause(milliseconds(1));
  DWORD before = 0, after = 0;
  GetProcessHandleCount(GetCurrentProcess(), &before);
  for (int i = 0; i < 100; ++i)
    pause(milliseconds(0));
  GetProcessHandleCount(GetCurrentProcess(), &after);
  EXPECT_LT(after, before + 10);
}

TEST_P(PauseTest, LastsAboutTheTimeWhateverFails) {
  failing = GetParam();
  EXPECT_GE(pause(milliseconds(30)), milliseconds(25));
}

INSTANTIATE_TEST_SUITE_P(Calls, PauseTest,
                         testing::Values(Failing::Nothing, Failing::Creation, Failing::Setting,
                                         Failing::Waiting));

}  // namespace

extern "C" {
void* __imp_CreateWaitableTimerExW = reinterpret_cast<void*>(create_timer);
void* __imp_SetWaitableTimer = reinterpret_cast<void*>(set_timer);
void* __imp_WaitForSingleObject = reinterpret_cast<void*>(wait_for);
}
