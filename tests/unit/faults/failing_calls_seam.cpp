// The replaced calls. The program's definitions take the place of the libraries' and pass each call on.
#include "unit/faults/failing_calls_seam.h"

#include <dirent.h>
#include <dlfcn.h>
#include <netdb.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include <openssl/crypto.h>

namespace vantelink_test {
namespace {

using enum CallFault;

// Guards `current` and the object that it points to.
constinit std::mutex lock;
constinit FailingCalls* current = nullptr;

// The next definition of the function in the order in which the libraries are searched.
template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

// Counts the call. Returns whether it must go wrong, and how in `fault`.
bool goes_wrong(CallGroup group, const char* name, std::initializer_list<CallFault> faults,
                CallFault& fault) {
  const std::lock_guard<std::mutex> hold(lock);
  if (current == nullptr || !current->goes_wrong(group, name, faults)) return false;
  fault = current->fault();
  return true;
}

// The same for a call that can only fail. Sets errno.
bool fails(CallGroup group, const char* name, int error) {
  CallFault fault{};
  if (!goes_wrong(group, name, {Error, StaysFailing}, fault)) return false;
  errno = error;
  return true;
}

// A call that moves `size` bytes over a socket. `move` performs it for the given number of bytes.
template <typename Move>
ssize_t moved(const char* name, int descriptor, std::size_t size, bool reads, Move move) {
  CallFault fault{};
  const bool wrong =
      reads ? goes_wrong(CallGroup::Network, name, {Error, TryAgain, Interrupted, Short, Ended}, fault)
            : goes_wrong(CallGroup::Network, name, {Error, TryAgain, Interrupted, Short}, fault);
  if (!wrong) return move(size);
  if (fault == Short) return move(std::min<std::size_t>(size, 1));
  if (fault == Ended) return 0;
  if (fault == Interrupted) {
    errno = EINTR;
    return -1;
  }
  ::shutdown(descriptor, SHUT_RDWR);
  errno = fault == TryAgain ? EAGAIN : ECONNRESET;
  return -1;
}

// The memory of OpenSSL, which has functions of its own.
void* allocate(std::size_t size, const char*, int) {
  return fails(CallGroup::Memory, "malloc", ENOMEM) ? nullptr : std::malloc(size);
}
void* reallocate(void* memory, std::size_t size, const char*, int) {
  return fails(CallGroup::Memory, "realloc", ENOMEM) ? nullptr : std::realloc(memory, size);
}
void release(void* memory, const char*, int) {
  std::free(memory);
}
// OpenSSL accepts other functions only before its first allocation.
const bool replaced_memory = CRYPTO_set_mem_functions(allocate, reallocate, release) == 1;

bool in_network_test() {
  const std::lock_guard<std::mutex> hold(lock);
  return current != nullptr && current->group() == CallGroup::Network;
}

}  // namespace

FailingCalls::FailingCalls(CallGroup group, CallFault fault, FailNth& fail)
    : group_(group), fault_(fault), fail_(fail) {
  const std::lock_guard<std::mutex> hold(lock);
  current = this;
}

FailingCalls::~FailingCalls() {
  const std::lock_guard<std::mutex> hold(lock);
  current = nullptr;
}

std::string FailingCalls::failed() const {
  const std::lock_guard<std::mutex> hold(lock);
  return failed_;
}

std::string FailingCalls::failed_with_number() const {
  const std::lock_guard<std::mutex> hold(lock);
  return failed_.empty() ? failed_ : failed_ + ' ' + std::to_string(number_);
}

void FailingCalls::stop() {
  const std::lock_guard<std::mutex> hold(lock);
  stopped_ = true;
}

bool FailingCalls::goes_wrong(CallGroup group, const char* name, std::initializer_list<CallFault> faults) {
  if (stopped_ || group != group_ || std::this_thread::get_id() == test_) return false;
  if (std::find(faults.begin(), faults.end(), fault_) == faults.end()) return false;
  ++counts_[name];
  if (fault_ == StaysFailing && failed_ == name) return true;
  if (!fail_.fails()) return false;
  failed_ = name;
  number_ = counts_[name];
  return true;
}

void report_failed_calls(int runs) {
  testing::Test::RecordProperty("failed_calls", runs - 1);
  std::printf("%d calls failed in turn\n", runs - 1);
}

}  // namespace vantelink_test

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::fails;
using vantelink_test::goes_wrong;
using vantelink_test::moved;

// The system's own definition of the function in which this is used.
#define SYSTEM(function) vantelink_test::next<decltype(::function)>(#function)

extern "C" {

int getaddrinfo(const char* host, const char* service, const addrinfo* hints, addrinfo** result) {
  static auto* const system = SYSTEM(getaddrinfo);
  if (fails(CallGroup::Network, "getaddrinfo", EIO)) return EAI_FAIL;
  if (hints == nullptr || !vantelink_test::in_network_test()) return system(host, service, hints, result);
  // Without a kind, the system lists each address once for each of the three kinds of sockets.
  addrinfo any = *hints;
  any.ai_socktype = 0;
  const int error = system(host, service, &any, result);
  for (addrinfo* one = error == 0 ? *result : nullptr; one != nullptr; one = one->ai_next) {
    one->ai_socktype = hints->ai_socktype;
    one->ai_protocol = 0;
  }
  return error;
}

int socket(int family, int kind, int protocol) {
  static auto* const system = SYSTEM(socket);
  return fails(CallGroup::Network, "socket", EMFILE) ? -1 : system(family, kind, protocol);
}

int connect(int descriptor, const sockaddr* address, socklen_t size) {
  static auto* const system = SYSTEM(connect);
  return fails(CallGroup::Network, "connect", ECONNREFUSED) ? -1 : system(descriptor, address, size);
}

int setsockopt(int descriptor, int level, int option, const void* value, socklen_t size) {
  static auto* const system = SYSTEM(setsockopt);
  return fails(CallGroup::Network, "setsockopt", ENOBUFS) ? -1
                                                          : system(descriptor, level, option, value, size);
}

ssize_t send(int descriptor, const void* data, std::size_t size, int flags) {
  static auto* const system = SYSTEM(send);
  return moved("send", descriptor, size, false,
               [&](std::size_t part) { return system(descriptor, data, part, flags); });
}

ssize_t recv(int descriptor, void* data, std::size_t size, int flags) {
  static auto* const system = SYSTEM(recv);
  return moved("recv", descriptor, size, true,
               [&](std::size_t part) { return system(descriptor, data, part, flags); });
}

// OpenSSL's own transfers over a socket.
ssize_t write(int descriptor, const void* data, std::size_t size) {
  static auto* const system = SYSTEM(write);
  return moved("write", descriptor, size, false,
               [&](std::size_t part) { return system(descriptor, data, part); });
}

ssize_t read(int descriptor, void* data, std::size_t size) {
  static auto* const system = SYSTEM(read);
  return moved("read", descriptor, size, true,
               [&](std::size_t part) { return system(descriptor, data, part); });
}

// The descriptor is closed also when the call fails, as the system does it.
int close(int descriptor) {
  static auto* const system = SYSTEM(close);
  const int result = system(descriptor);
  return fails(CallGroup::Network, "close", EIO) ? -1 : result;
}

int RAND_bytes(unsigned char* bytes, int count) {
  static auto* const system = SYSTEM(RAND_bytes);
  return fails(CallGroup::Random, "RAND_bytes", EIO) ? 0 : system(bytes, count);
}

std::FILE* fopen(const char* path, const char* mode) {
  static auto* const system = SYSTEM(fopen);
  return fails(CallGroup::Files, "fopen", EMFILE) ? nullptr : system(path, mode);
}

std::size_t fread(void* data, std::size_t size, std::size_t count, std::FILE* file) {
  static auto* const system = SYSTEM(fread);
  CallFault fault{};
  if (!goes_wrong(CallGroup::Files, "fread", {CallFault::Error, CallFault::StaysFailing, CallFault::Short},
                  fault))
    return system(data, size, count, file);
  errno = EIO;
  return fault == CallFault::Short ? system(data, size, count / 2, file) : 0;
}

std::size_t fwrite(const void* data, std::size_t size, std::size_t count, std::FILE* file) {
  static auto* const system = SYSTEM(fwrite);
  CallFault fault{};
  if (!goes_wrong(CallGroup::Files, "fwrite", {CallFault::Error, CallFault::StaysFailing, CallFault::Short},
                  fault))
    return system(data, size, count, file);
  errno = ENOSPC;
  return fault == CallFault::Short ? system(data, size, count / 2, file) : 0;
}

// The file is closed also when the call fails, as the library does it.
int fclose(std::FILE* file) {
  static auto* const system = SYSTEM(fclose);
  const int result = system(file);
  return fails(CallGroup::Files, "fclose", ENOSPC) ? EOF : result;
}

DIR* opendir(const char* path) {
  static auto* const system = SYSTEM(opendir);
  return fails(CallGroup::Files, "opendir", EACCES) ? nullptr : system(path);
}

dirent* readdir(DIR* folder) {
  static auto* const system = SYSTEM(readdir);
  return fails(CallGroup::Files, "readdir", EIO) ? nullptr : system(folder);
}

int fstatat(int descriptor, const char* path, struct stat* status, int flags) {
  static auto* const system = vantelink_test::next<int(int, const char*, struct stat*, int)>("fstatat");
  return fails(CallGroup::Files, "fstatat", EIO) ? -1 : system(descriptor, path, status, flags);
}

int mkdir(const char* path, mode_t mode) {
  static auto* const system = SYSTEM(mkdir);
  return fails(CallGroup::Files, "mkdir", ENOSPC) ? -1 : system(path, mode);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument) {
  static auto* const system = SYSTEM(pthread_create);
  return fails(CallGroup::Threads, "pthread_create", EAGAIN) ? EAGAIN
                                                             : system(thread, attributes, run, argument);
}
}
