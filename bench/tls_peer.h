// TLS over loopback for the benchmarks: a listener and bare connections, without the agent's code.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include <openssl/ssl.h>

#include "support/certificates.h"

namespace vantelink_bench {

using Ssl = std::unique_ptr<SSL, decltype(&SSL_free)>;
using SslContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

// The authority that issues the listener's certificate.
const vantelink_test::TestAuthority& authority();

// Both functions throw std::runtime_error if the peer has closed the connection.
void write_all(SSL* ssl, const void* bytes, std::size_t size);
std::size_t read_some(SSL* ssl, unsigned char* bytes, std::size_t size);

// A TLS listener on the loopback address.
class TlsListener {
 public:
  TlsListener();
  ~TlsListener();
  TlsListener(const TlsListener&) = delete;
  TlsListener& operator=(const TlsListener&) = delete;

  // Waits for a connection and its handshake.
  Ssl accept() const;

  std::uint16_t port = 0;

 private:
  SslContext context_;
  int listener_ = -1;
};

Ssl connect_to(const TlsListener& listener, SSL_CTX* context);
void close_connection(const Ssl& ssl);

}  // namespace vantelink_bench
