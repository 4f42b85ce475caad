// Checks what the names of --host resolve to.
#include <ifaddrs.h>
#include <netdb.h>
#include <sys/socket.h>

#include <algorithm>
#include <memory>
#include <set>

#include "relay/program/check/checks.h"

namespace vlk::relay {
namespace {

std::string text_of(const sockaddr* address) {
  const socklen_t size = address->sa_family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
  char text[NI_MAXHOST];
  if (::getnameinfo(address, size, text, sizeof text, nullptr, 0, NI_NUMERICHOST) != 0) return {};
  const std::string whole = text;
  return whole.substr(0, whole.find('%'));
}

bool is_internet(const sockaddr* address) {
  return address && (address->sa_family == AF_INET || address->sa_family == AF_INET6);
}

std::set<std::string> own_addresses() {
  ifaddrs* list = nullptr;
  std::set<std::string> own;
  if (::getifaddrs(&list) != 0) return own;
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(list, ::freeifaddrs);
  for (const ifaddrs* at = list; at; at = at->ifa_next) {
    if (is_internet(at->ifa_addr)) own.insert(text_of(at->ifa_addr));
  }
  return own;
}

// The addresses of a name, or none and the reason in `problem`. A name may be an address itself.
std::set<std::string> addresses_of(const std::string& host, std::string& problem) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  std::set<std::string> addresses;
  const int failure = ::getaddrinfo(host.c_str(), nullptr, &hints, &list);
  if (failure != 0) {
    problem = ::gai_strerror(failure);
    return addresses;
  }
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(list, ::freeaddrinfo);
  for (const addrinfo* at = list; at; at = at->ai_next) {
    if (is_internet(at->ai_addr)) addresses.insert(text_of(at->ai_addr));
  }
  return addresses;
}

}  // namespace

void check_names(const Options& options, Findings& findings) {
  const std::set<std::string> own = own_addresses();
  for (const std::string& host : options.hosts) {
    std::string problem;
    const std::set<std::string> addresses = addresses_of(host, problem);
    if (addresses.empty()) {
      findings.wrong("the name " + host + " does not resolve here (" + problem +
                     "), so agents and browsers may not find the relay; check --host and the name service");
      continue;
    }
    const auto is_own = [&](const std::string& address) { return own.contains(address); };
    const std::string first = *addresses.begin();
    if (std::any_of(addresses.begin(), addresses.end(), is_own)) {
      findings.ok(host + " leads to this machine");
    } else {
      findings.warning(host + " leads to " + first +
                       ", which is not an address of this machine; that is right only if a router or a proxy "
                       "passes connections on");
    }
  }
}

}  // namespace vlk::relay
