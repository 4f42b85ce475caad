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

void SSL_CTX_free(SSL_CTX* context) {
  delete context;
}

SSL* SSL_new(SSL_CTX* context) {
  REQUIRE(context != nullptr);
  return new ssl_st;
}

void SSL_free(SSL* ssl) {
  delete ssl;
}

int SSL_set_fd(SSL* ssl, int socket) {
  ssl->socket = static_cast<vlk::SocketHandle>(socket);
  return 1;
}

long SSL_ctrl(SSL*, int command, long, void* name) {
  REQUIRE(command == SSL_CTRL_SET_TLSEXT_HOSTNAME && name != nullptr);
  return 1;
}

int SSL_connect(SSL* ssl) {
  ssl->connected = true;
  return 1;
}

int SSL_write(SSL* ssl, const void* data, int size) {
  REQUIRE(ssl->connected);
  return vlk::send_all(ssl->socket, static_cast<const unsigned char*>(data), static_cast<std::size_t>(size))
             ? size
             : -1;
}

int SSL_read(SSL* ssl, void* buffer, int size) {
  REQUIRE(ssl->connected);
  return static_cast<int>(
      vlk::receive_some(ssl->socket, static_cast<unsigned char*>(buffer), static_cast<std::size_t>(size)));
}

int SSL_shutdown(SSL*) {
  return 1;
}
}
