// Sends the rows of the trail to syslog.
#include <netdb.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "relay/storage/follow/sinks.h"
#include "relay/storage/trail/text/lines.h"

namespace vlk::relay {
namespace {

// Facility authpriv (10), severity informational (6).
constexpr int kPriority = 10 * 8 + 6;

struct FreeAddresses {
  void operator()(addrinfo* addresses) const { ::freeaddrinfo(addresses); }
};

[[noreturn]] void fail(const std::string& target) {
  throw std::runtime_error("cannot send the trail to syslog at " + target + ": " + std::strerror(errno));
}

int connect_local(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return -1;
  path.copy(address.sun_path, path.size());
  const int result = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (result >= 0 && ::connect(result, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
    return result;
  if (result >= 0) ::close(result);
  return -1;
}

int connect_udp(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), port.c_str(), &hints, &found) != 0) return -1;
  const std::unique_ptr<addrinfo, FreeAddresses> addresses(found);
  for (const addrinfo* one = found; one; one = one->ai_next) {
    const int result = ::socket(one->ai_family, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (result < 0) continue;
    if (::connect(result, one->ai_addr, one->ai_addrlen) == 0) return result;
    ::close(result);
  }
  return -1;
}

std::string host_name() {
  char name[256] = {};
  return ::gethostname(name, sizeof name - 1) == 0 && name[0] != '\0' ? name : "-";
}

}  // namespace

std::string syslog_message(const TrailRow& row, const std::string& host) {
  return '<' + std::to_string(kPriority) + ">1 " + iso_time(row.entry.time_ms) + ' ' + host +
         " vantelink-relay " + std::to_string(::getpid()) + ' ' + row.entry.code + " - " + row_line(row);
}

TrailSyslog::TrailSyslog(const std::string& target) : target_(target) {
  if (target.starts_with('/')) return;
  const std::size_t colon = target.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == target.size())
    throw std::runtime_error("--trail-syslog needs the path of a socket or HOST:PORT, not \"" + target + '"');
  host_ = target.substr(0, colon);
  port_ = target.substr(colon + 1);
  if (host_.starts_with('[') && host_.ends_with(']')) host_ = host_.substr(1, host_.size() - 2);
}

TrailSyslog::~TrailSyslog() {
  reopen();
}

void TrailSyslog::connect() {
  socket_ = host_.empty() ? connect_local(target_) : connect_udp(host_, port_);
  if (socket_ < 0) fail(target_);
}

void TrailSyslog::write(const TrailRow& row) {
  if (socket_ < 0) connect();
  const std::string message = syslog_message(row, host_name());
  if (::send(socket_, message.data(), message.size(), MSG_NOSIGNAL) >= 0) return;
  const int error = errno;
  reopen();
  errno = error;
  fail(target_);
}

void TrailSyslog::reopen() {
  if (socket_ >= 0) ::close(socket_);
  socket_ = -1;
}

}  // namespace vlk::relay
