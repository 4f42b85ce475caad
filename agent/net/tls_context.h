// The TLS client context of the connection to the relay: OpenSSL's defaults, TLS 1.2 or later, certificates
// verified against the operating system's roots and OpenSSL's own.
#pragma once

#include <memory>

#include <openssl/ssl.h>

namespace vlk::agent {

struct SslContextDeleter {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using SslContext = std::unique_ptr<SSL_CTX, SslContextDeleter>;

// Called before any other use of OpenSSL in the process. Reads the system's roots once, so certificates added
// later are not seen. Null without memory; then every handshake fails.
[[nodiscard]] SslContext build_tls_context();

// Adds the operating system's roots to the context's store. A root that does not parse or is refused is
// skipped.
void import_system_roots(SSL_CTX* context);

}  // namespace vlk::agent
