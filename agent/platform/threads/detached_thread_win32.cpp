// Detached threads with the C runtime of Windows. The C++ library's threads use a POSIX layer in which
// detaching races with the thread's end: when fifty short threads were started at once, sometimes a thread
// never ran or ran twice.
#include "platform/threads/detached_thread.h"

#include <windows.h>
#include <process.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include "platform/threads/file_errors.h"
#include "platform/win32/handles_win32.h"

namespace vlk {
namespace {

using Work = std::function<void()>;

unsigned __stdcall run(void* argument) {
  const std::unique_ptr<Work> work(static_cast<Work*>(argument));
  disable_file_error_boxes();
  (*work)();
  return 0;
}

}  // namespace

void start_detached_thread(Work work) {
  auto owned = std::make_unique<Work>(std::move(work));
  const UniqueKernelHandle thread(
      reinterpret_cast<HANDLE>(_beginthreadex(nullptr, 0, run, owned.get(), 0, nullptr)));
  if (!thread) throw std::system_error(errno, std::generic_category());
  (void)owned.release();  // the thread owns it now
}

}  // namespace vlk
