// A pause by a waitable timer of high resolution. A plain sleep ends with the system's clock interrupt, which
// comes every 15.6 ms unless a program has asked for more; a pause between two frames at 60 frames a second
// would then last nearly as long as the frame itself.
#include "platform/pause.h"

#include <chrono>
#include <thread>

#include "platform/win32/handles_win32.h"

namespace vlk {
namespace {

constexpr DWORD kHighResolution = 0x2;             // CREATE_WAITABLE_TIMER_HIGH_RESOLUTION of winbase.h
constexpr std::int64_t kNanosecondsPerUnit = 100;  // of a timer's due time

}  // namespace

void pause_for(std::int64_t nanoseconds) {
  // Windows before 10, version 1803, has no such timer and refuses the flag.
  const UniqueKernelHandle timer(
      ::CreateWaitableTimerExW(nullptr, nullptr, kHighResolution, TIMER_MODIFY_STATE | SYNCHRONIZE));
  LARGE_INTEGER due;
  // A negative due time counts from now. The last unit is begun, so that the pause does not end before it.
  due.QuadPart = -(nanoseconds + kNanosecondsPerUnit - 1) / kNanosecondsPerUnit;
  if (timer && ::SetWaitableTimer(timer.get(), &due, 0, nullptr, nullptr, FALSE) &&
      ::WaitForSingleObject(timer.get(), INFINITE) == WAIT_OBJECT_0) {
    return;
  }
  // The library's sleep rounds down to whole milliseconds, and one of nothing would be a busy wait.
  std::this_thread::sleep_for(
      std::chrono::ceil<std::chrono::milliseconds>(std::chrono::nanoseconds(nanoseconds)));
}

}  // namespace vlk
