// A connection and the system's root certificates with each call of the system failing in turn.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <wincrypt.h>

#include <string>

#include <gtest/gtest.h>

#include "net/socket.h"
#include "net/trust_roots.h"
#include "tests/windows/support/counted_calls.h"

VLK_COUNTED("ws2_32.dll", WSAStartup, WSASYSNOTREADY, 0)
VLK_COUNTED_PLAIN("ws2_32.dll", getaddrinfo, WSAHOST_NOT_FOUND, WSAHOST_NOT_FOUND)
VLK_COUNTED("ws2_32.dll", socket, INVALID_SOCKET, WSAEMFILE)
VLK_COUNTED("ws2_32.dll", connect, SOCKET_ERROR, WSAECONNREFUSED)
VLK_COUNTED("ws2_32.dll", setsockopt, SOCKET_ERROR, WSAENETDOWN)
VLK_COUNTED("ws2_32.dll", send, SOCKET_ERROR, WSAECONNRESET)
VLK_COUNTED("ws2_32.dll", recv, SOCKET_ERROR, WSAECONNRESET)
VLK_COUNTED("crypt32.dll", CertOpenSystemStoreW, 0, ERROR_ACCESS_DENIED)

namespace vlk::agent {
namespace {

// As the system's function does, this one releases the certificate before, also if it fails.
PCCERT_CONTEXT WINAPI next_certificate(HCERTSTORE store, PCCERT_CONTEXT before) {
  static auto* const system =
      test::real<decltype(next_certificate)>("crypt32.dll", "CertEnumCertificatesInStore");
  if (!test::call_fails("CertEnumCertificatesInStore")) return system(store, before);
  if (before != nullptr) CertFreeCertificateContext(before);
  return nullptr;
}

// A listener on loopback. Its own calls are others than the agent's, so they are not counted.
class Listener {
 public:
  Listener() : socket_(WSASocketW(AF_INET, SOCK_STREAM, 0, nullptr, 0, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr*>(&address), size), 0);
    EXPECT_EQ(getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &size), 0);
    EXPECT_EQ(listen(socket_, 5), 0);
    port_ = ntohs(address.sin_port);
  }
  ~Listener() { closesocket(socket_); }
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  std::uint32_t port() const { return port_; }

  // Accepts one connection and sends `text` on it. The caller closes the socket.
  SOCKET answer(std::string text) const {
    const SOCKET peer = accept(socket_, nullptr, nullptr);
    EXPECT_NE(peer, INVALID_SOCKET);
    WSABUF bytes{static_cast<u_long>(text.size()), text.data()};
    DWORD count = 0;
    EXPECT_EQ(WSASend(peer, &bytes, 1, &count, 0, nullptr, nullptr), 0);
    return peer;
  }

 private:
  SOCKET socket_;
  std::uint32_t port_ = 0;
};

// Each start of the sockets that the agent ends, although it did not begin, takes one from the test's own.
void start_own_sockets() {
  static auto* const start = test::real<decltype(WSAStartup)>("ws2_32.dll", "WSAStartup");
  WSADATA data;
  EXPECT_EQ(start(MAKEWORD(2, 2), &data), 0);
}

// Connects, sends four bytes and reads the answer. Returns the steps that succeeded.
std::string talk(const Listener& listener) {
  start_sockets();
  std::string steps = "nothing";
  if (const SocketHandle socket = connect_socket("127.0.0.1", listener.port()); socket != kInvalidSocket) {
    steps = "connected";
    send_at_once(socket);
    const SOCKET peer = listener.answer("pong");
    if (send_all(socket, reinterpret_cast<const unsigned char*>("ping"), 4)) steps += " sent";
    unsigned char answer[8];
    const std::ptrdiff_t count = receive_some(socket, answer, sizeof answer);
    steps += ' ' + (count < 0 ? std::to_string(count) : std::string(answer, answer + count));
    close_socket(socket);
    closesocket(peer);
  }
  end_sockets();
  return steps;
}

TEST(SocketFaults, ConnectionThatCannotBeMadeOrUsedLeavesNothingBehind) {
  start_own_sockets();
  const Listener listener;
  std::string steps;
  const test::Effects effects = {{"getaddrinfo 1", "nothing"},
                                 {"socket 1", "nothing"},
                                 {"connect 1", "nothing"},
                                 {"send 1", "connected pong"},
                                 {"recv 1", "connected sent -1"}};
  const test::EffectRuns runs{.prepare = start_own_sockets,
                              .work = [&] { steps = talk(listener); },
                              .result = [&] { return steps; },
                              .usual = "connected sent pong",
                              .effects = effects};
  // Without its own start, and without sending at once, the connection works all the same.
  EXPECT_EQ(expect_effects(runs), 7);
}

TEST(TrustRootFaults, RootsBeforeAFailureAreVisited) {
  int all = 0, visited = 0;
  const auto visit = [&visited](const unsigned char*, std::size_t) { ++visited; };
  for_each_system_root([&all](const unsigned char*, std::size_t) { ++all; });
  ASSERT_GT(all, 0);
  const auto check = [&](const std::string& failed) {
    const std::string each = "CertEnumCertificatesInStore ";
    int expected = failed.empty() ? all : 0;
    if (failed.starts_with(each)) expected = std::stoi(failed.substr(each.size())) - 1;
    EXPECT_EQ(visited, expected) << failed;
  };
  EXPECT_EQ(test::fail_each_counted_call({.prepare = [&visited] { visited = 0; },
                                          .work = [&visit] { for_each_system_root(visit); },
                                          .check = check}),
            all + 2);
}

}  // namespace
}  // namespace vlk::agent

extern "C" {
void* __imp_CertEnumCertificatesInStore = reinterpret_cast<void*>(vlk::agent::next_certificate);
}
