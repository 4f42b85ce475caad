// Implements TLS connections in place of net/tls_connection.cpp and net/tls_context.cpp: the bytes pass
// unchanged. Also implements OpenSSL's random numbers, whose generator would be prepared again for each
// thread of each run.
#include "net/tls_connection.h"

#include <atomic>

#include <openssl/rand.h>

#include "net/tls_context.h"
#include "require.h"

namespace vlk::agent {

SslContext build_tls_context() {
  return nullptr;
}

TlsConnection::TlsConnection(SSL_CTX*, SocketHandle socket, const std::string&) : socket_(socket) {}

bool TlsConnection::connect() {
  return true;
}

std::ptrdiff_t TlsConnection::read(unsigned char* buffer, std::size_t size) {
  const std::ptrdiff_t count = receive_some(socket_, buffer, size);
  return count > 0 ? count : -1;
}

bool TlsConnection::write(const unsigned char* data, std::size_t length) {
  const MutexLock lock(lock_);
  REQUIRE(!sending_);  // the caller lets one thread write at a time
  sending_ = true;
  lock_.unlock();
  const bool sent = send_all(socket_, data, length);
  lock_.lock();
  sending_ = false;
  return sent;
}

void TlsConnection::shutdown() {
  const MutexLock lock(lock_);
  REQUIRE(!input_ended_);  // called once
  input_ended_ = true;
}

}  // namespace vlk::agent

extern "C" int RAND_bytes(unsigned char* buf, int num) {
  static std::atomic<std::uint32_t> state{1};
  for (int i = 0; i < num; ++i)
    buf[i] = static_cast<unsigned char>(((state += 0x9E3779B9u) * 0x85EBCA6Bu) >> 24);
  return 1;
}
