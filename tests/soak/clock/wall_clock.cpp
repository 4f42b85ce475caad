// A library preloaded into a process whose wall clock jumps: the date is the system's plus the seconds in the
// file VANTELINK_CLOCK_FILE, which another program may change at any time. Monotonic clocks are not affected.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <ctime>

namespace {

using Seconds = std::atomic<std::int64_t>;  // in the machine's byte order
static_assert(Seconds::is_always_lock_free && sizeof(Seconds) == sizeof(std::int64_t));

// The mapped file; null if there is none.
const Seconds* mapped() {
  const char* const path = std::getenv("VANTELINK_CLOCK_FILE");
  const int file = path == nullptr ? -1 : ::open(path, O_RDONLY | O_CLOEXEC);
  if (file < 0) return nullptr;
  void* const memory = ::mmap(nullptr, sizeof(Seconds), PROT_READ, MAP_SHARED, file, 0);
  ::close(file);
  return memory == MAP_FAILED ? nullptr : static_cast<const Seconds*>(memory);
}

std::int64_t added() {
  static const Seconds* const seconds = mapped();
  return seconds == nullptr ? 0 : seconds->load(std::memory_order_relaxed);
}

}  // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept {
  static auto* const real =
      reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
  const int status = real(clock, time);
  if (status == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE)) time->tv_sec += added();
  return status;
}

int gettimeofday(timeval* time, void* /*zone*/) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  *time = {now.tv_sec, now.tv_nsec / 1000};
  return 0;
}

std::time_t time(std::time_t* result) noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  if (result != nullptr) *result = now.tv_sec;
  return now.tv_sec;
}
}
