// Sets up both ends of the connection, and reads on a thread.
#include "bench/windows/loopback_link_win32.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>

#include <vector>

#include "bench/windows/cost_win32.h"
#include "tests/support/certificates.h"
#include "wire/message_frame.h"

namespace vantelink_bench {
namespace {

using namespace vlk;
using namespace vlk::agent;

constexpr std::size_t kReadSize = 262144;

}  // namespace

LoopbackLink::LoopbackLink()
    : server_(SSL_CTX_new(TLS_server_method())), client_(SSL_CTX_new(TLS_client_method())) {
  start_sockets();
  const vantelink_test::TestAuthority authority;
  const auto identity = authority.issue({"localhost"});
  SSL_CTX_use_certificate(server_.get(), identity.certificate.get());
  SSL_CTX_use_PrivateKey(server_.get(), identity.key.get());
  const SOCKET listener = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  (void)::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  ::listen(listener, 1);
  int size = sizeof(address);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  socket_ = connect_socket("127.0.0.1", ntohs(address.sin_port));
  send_at_once(socket_);
  peer_ = ::accept(listener, nullptr, nullptr);
  ::closesocket(listener);
  reader_ = std::thread([this] { Read(); });
  connection_ = std::make_unique<TlsConnection>(client_.get(), socket_, "localhost");
  connected_ = connection_->connect();
}

LoopbackLink::~LoopbackLink() {
  close_socket(socket_);  // ends the reader
  reader_.join();
  ::closesocket(peer_);
  end_sockets();
}

bool LoopbackLink::Send(Msg type, const unsigned char* data, std::size_t length, std::uint8_t flags) {
  const WireBytes frame = encode_message_frame(type, 1, data, length, flags);
  return connection_->write(frame.data.get(), frame.size);
}

double LoopbackLink::reader_milliseconds() {
  return thread_milliseconds(reader_handle_.get());
}

void LoopbackLink::Read() {
  HANDLE own = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &own, 0, FALSE,
                  DUPLICATE_SAME_ACCESS);
  reader_handle_.reset(own);
  const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(server_.get()), &SSL_free);
  SSL_set_fd(ssl.get(), static_cast<int>(peer_));
  if (SSL_accept(ssl.get()) != 1) return;
  std::vector<std::uint8_t> buffer(kReadSize);
  while (SSL_read(ssl.get(), buffer.data(), static_cast<int>(buffer.size())) > 0) {
  }
}

}  // namespace vantelink_bench
