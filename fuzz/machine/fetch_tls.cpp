// Implements the functions of OpenSSL that update/https.cpp calls: the bytes pass unchanged. Each object is
// owned as in OpenSSL, so that a leak or a second release is found.
#include <openssl/ssl.h>

#include "net/socket.h"
#include "require.h"

struct ssl_ctx_st {};
struct ssl_st {
  vlk::SocketHandle socket = vlk::kInvalidSocket;
  bool connected = false;
};

extern "C" {

const SSL_METHOD* TLS_client_method() {
  return nullptr;
}

SSL_CTX* SSL_CTX_new(const SSL_METHOD*) {
  return new ssl_ctx_st;
}

void SSL_CTX_free(SSL_CTX* ctx) {
  delete ctx;
}

SSL* SSL_new(SSL_CTX* ctx) {
  REQUIRE(ctx != nullptr);
  return new ssl_st;
}

void SSL_free(SSL* ssl) {
  delete ssl;
}

int SSL_set_fd(SSL* s, int fd) {
  s->socket = static_cast<vlk::SocketHandle>(fd);
  return 1;
}

long SSL_ctrl(SSL*, int cmd, long, void* parg) {
  REQUIRE(cmd == SSL_CTRL_SET_TLSEXT_HOSTNAME && parg != nullptr);
  return 1;
}

int SSL_connect(SSL* ssl) {
  ssl->connected = true;
  return 1;
}

int SSL_write(SSL* ssl, const void* buf, int num) {
  REQUIRE(ssl->connected);
  const auto* const data = static_cast<const unsigned char*>(buf);
  return vlk::send_all(ssl->socket, data, static_cast<std::size_t>(num)) ? num : -1;
}

int SSL_read(SSL* ssl, void* buf, int num) {
  REQUIRE(ssl->connected);
  auto* const data = static_cast<unsigned char*>(buf);
  return static_cast<int>(vlk::receive_some(ssl->socket, data, static_cast<std::size_t>(num)));
}

int SSL_shutdown(SSL*) {
  return 1;
}
}
