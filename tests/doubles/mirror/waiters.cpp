// Accepts connections and writes to them without ever blocking.
#include "tests/doubles/mirror/waiters.h"

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

namespace vantelink_doubles {
namespace {

void wake(int socket) {
  // A full buffer contains bytes that the program has yet to read, which is enough to wake it.
  (void)::send(socket, "", 1, MSG_DONTWAIT | MSG_NOSIGNAL);
}

bool has_ended(int socket) {
  char byte = 0;
  const ssize_t count = ::recv(socket, &byte, 1, MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
}

}  // namespace

Waiters::Waiters() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 16) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("cannot listen on the loopback address");
  }
  port_ = ntohs(address.sin_port);
}

Waiters::~Waiters() {
  for (const Waiter& waiter : waiters_)
    ::close(waiter.socket);
  ::close(listener_);
}

void Waiters::add_descriptors(std::vector<pollfd>& descriptors) const {
  descriptors.push_back({listener_, POLLIN, 0});
  for (const Waiter& waiter : waiters_)
    descriptors.push_back({waiter.socket, POLLIN, 0});
}

void Waiters::follow_connections() {
  std::erase_if(waiters_, [](const Waiter& waiter) {
    const bool ended = has_ended(waiter.socket);
    if (ended) ::close(waiter.socket);
    return ended;
  });
  for (;;) {
    const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) return;
    waiters_.push_back({socket, false});
  }
}

void Waiters::wake_all() {
  for (Waiter& waiter : waiters_) {
    wake(waiter.socket);
    waiter.woken = true;
  }
}

void Waiters::wake_new() {
  for (Waiter& waiter : waiters_) {
    if (!waiter.woken) wake(waiter.socket);
    waiter.woken = true;
  }
}

}  // namespace vantelink_doubles
