// A library preloaded into Wine, through which the unmodified executable reaches a test's server under its
// built-in host name. The host in VANTELINK_REDIRECT_HOST resolves to this machine, and connections to this
// machine's HTTPS port go to the port that the file VANTELINK_REDIRECT_PORT_FILE contains at that moment.
// Wine's program process resolves names and its server process connects, so both load this library.
#include <dlfcn.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr in_port_t kHttpsPort = 443;

template <typename Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Returns the port in the file, or 0 if there is no file.
in_port_t wanted_port() {
  const char* const path = std::getenv("VANTELINK_REDIRECT_PORT_FILE");
  std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "r");
  if (file == nullptr) return 0;
  char text[16] = {};
  const bool read = std::fgets(text, sizeof text, file) != nullptr;
  std::fclose(file);
  return read ? static_cast<in_port_t>(std::strtoul(text, nullptr, 10)) : in_port_t{0};
}

}  // namespace

extern "C" {

int getaddrinfo(const char* node, const char* service, const addrinfo* hints, addrinfo** result) {
  static auto* const real = next<decltype(getaddrinfo)>("getaddrinfo");
  const char* const host = std::getenv("VANTELINK_REDIRECT_HOST");
  const bool redirected = host != nullptr && node != nullptr && std::strcmp(node, host) == 0;
  return real(redirected ? "127.0.0.1" : node, service, hints, result);
}

int connect(int socket, const sockaddr* address, socklen_t size) {
  static auto* const real = next<decltype(connect)>("connect");
  sockaddr_in changed;
  if (address == nullptr || address->sa_family != AF_INET || size < sizeof changed) {
    return real(socket, address, size);
  }
  std::memcpy(&changed, address, sizeof changed);
  const bool redirected =
      changed.sin_addr.s_addr == htonl(INADDR_LOOPBACK) && changed.sin_port == htons(kHttpsPort);
  if (redirected) changed.sin_port = htons(wanted_port());
  return real(socket, reinterpret_cast<const sockaddr*>(&changed), sizeof changed);
}
}
