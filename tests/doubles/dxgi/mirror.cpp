// Maps the file of desktop_mirror and waits on a connection to its port. A wait is one blocking call of the
// system and does not poll.
#define CINTERFACE
// winsock2.h comes before windows.h, which would include an older version of it.
#include "tests/doubles/dxgi/mirror.h"

#include <winsock2.h>
#include <dxgi.h>

namespace vantelink_doubles {
namespace {

constexpr UINT kGreetingTime = 5000;  // milliseconds

bool mirror_path(char (&path)[MAX_PATH]) {
  const DWORD length = GetEnvironmentVariableA(kDesktopMirrorVariable, path, MAX_PATH);
  return length > 0 && length < MAX_PATH;
}

// Maps the file until UnmapViewOfFile. Returns null if it is missing or not yet valid.
std::uint8_t* map_mirror() {
  char path[MAX_PATH] = {};
  if (!mirror_path(path)) return nullptr;
  const HANDLE file = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return nullptr;
  const HANDLE mapping = CreateFileMappingA(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
  CloseHandle(file);
  if (mapping == nullptr) return nullptr;
  void* const view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, kMirrorFileSize);
  CloseHandle(mapping);
  auto* const memory = static_cast<std::uint8_t*>(view);
  if (memory != nullptr && (mirror_header(memory).magic != kMirrorMagic ||
                            mirror_header(memory).published.load(std::memory_order_acquire) == 0)) {
    UnmapViewOfFile(view);
    return nullptr;
  }
  return memory;
}

SIZE size_in(std::uint8_t* file) {
  for (;;) {
    const std::int64_t number = mirror_header(file).published.load(std::memory_order_acquire);
    const MirrorSlot& slot = mirror_slot(file, number);
    const SIZE size = {slot.width, slot.height};
    if (picture_intact(file, number)) return size;
  }
}

// Waits until the socket has something to read or its peer has closed it, for at most this time.
bool wait_for_bytes(SOCKET socket, UINT timeout_ms) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(socket, &readable);
  timeval time = {static_cast<long>(timeout_ms / 1000), static_cast<long>(timeout_ms % 1000 * 1000)};
  return select(0, &readable, nullptr, nullptr, timeout_ms == INFINITE ? nullptr : &time) == 1;
}

// Reads what the socket has received. Returns false if the peer has closed it.
bool take_bytes(SOCKET socket) {
  char bytes[1024];
  return recv(socket, bytes, sizeof bytes, 0) > 0;
}

bool connect_to(SOCKET socket, int port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<u_short>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

}  // namespace

bool shows_mirror() {
  char path[MAX_PATH] = {};
  static const bool shown = mirror_path(path);
  return shown;
}

SIZE mirror_size() {
  std::uint8_t* const file = map_mirror();
  if (file == nullptr) return {GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  const SIZE size = size_in(file);
  UnmapViewOfFile(file);
  return size;
}

std::shared_ptr<Mirror> Mirror::connect() {
  WSADATA data = {};
  static const bool started = WSAStartup(MAKEWORD(2, 2), &data) == 0;
  const std::shared_ptr<Mirror> mirror(new Mirror);
  mirror->file_ = map_mirror();
  if (!started || mirror->file_ == nullptr) return nullptr;
  mirror->socket_ = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (!connect_to(mirror->socket_, mirror_header(mirror->file_).port)) return nullptr;
  if (!wait_for_bytes(mirror->socket_, kGreetingTime) || !take_bytes(mirror->socket_)) return nullptr;
  return mirror;
}

Mirror::~Mirror() {
  if (socket_ != INVALID_SOCKET) closesocket(socket_);
  if (file_ != nullptr) UnmapViewOfFile(file_);
}

HRESULT Mirror::wait_for_change(std::int64_t number, UINT timeout_ms) const {
  const ULONGLONG deadline = GetTickCount64() + timeout_ms;
  while (published() == number) {
    const ULONGLONG now = GetTickCount64();
    if (timeout_ms != INFINITE && now > deadline) return DXGI_ERROR_WAIT_TIMEOUT;
    // The bytes can belong to pictures that have been seen, so the wait may have to be repeated.
    const UINT left = timeout_ms == INFINITE ? INFINITE : static_cast<UINT>(deadline - now);
    if (!wait_for_bytes(socket_, left)) return DXGI_ERROR_WAIT_TIMEOUT;
    if (!take_bytes(socket_)) return DXGI_ERROR_ACCESS_LOST;
  }
  return S_OK;
}

std::int64_t Mirror::published() const {
  return mirror_header(file_).published.load(std::memory_order_acquire);
}

SIZE Mirror::size() const {
  return size_in(file_);
}

bool Mirror::update_copy(PictureCopy& copy) const {
  return vantelink_doubles::update_copy(file_, copy);
}

}  // namespace vantelink_doubles
