// The replaced calls. The program's definitions take the place of the libraries' and pass each call on.
#include "unit/client/system_calls_seam.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace vantelink_test {
namespace {

constinit std::atomic<const SystemCalls*> current{nullptr};

// Calls the member if a test has set it. Returns true if it is not set.
template <typename Result, typename... Values>
bool proceed(std::function<Result(Values...)> SystemCalls::*member, Values... values) {
  const SystemCalls* const calls = current;
  if (calls == nullptr || !(calls->*member)) return true;
  if constexpr (std::is_void_v<Result>) {
    (calls->*member)(values...);
    return true;
  } else {
    return (calls->*member)(values...);
  }
}

// The next definition of the function in the order in which the libraries are searched.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

ReplacedSystemCalls::ReplacedSystemCalls(SystemCalls calls) : calls_(std::move(calls)) {
  current = &calls_;
}

ReplacedSystemCalls::~ReplacedSystemCalls() {
  current = nullptr;
}

}  // namespace vantelink_test

using vantelink_test::proceed;
using vantelink_test::SystemCalls;

extern "C" {

int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
  static auto* const system = vantelink_test::next<decltype(getaddrinfo)>("getaddrinfo");
  return proceed(&SystemCalls::resolve) ? system(host, service, hints, result) : EAI_FAIL;
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  static auto* const system = vantelink_test::next<decltype(connect)>("connect");
  if (proceed(&SystemCalls::connect)) return system(descriptor, address, size);
  errno = ECONNREFUSED;
  return -1;
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) {
  static auto* const system = vantelink_test::next<decltype(setsockopt)>("setsockopt");
  int number = 0;
  std::memcpy(&number, value, std::min<std::size_t>(size, sizeof number));
  if (number != 0) proceed(&SystemCalls::set_option, level, option);
  return system(descriptor, level, option, value, size);
}

int RAND_bytes(unsigned char* bytes, int count) {
  static auto* const system = vantelink_test::next<decltype(RAND_bytes)>("RAND_bytes");
  proceed(&SystemCalls::random, count);
  return system(bytes, count);
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  static auto* const system = vantelink_test::next<decltype(fwrite)>("fwrite");
  proceed(&SystemCalls::fwrite, size * count);
  return system(data, size, count, file);
}
}
