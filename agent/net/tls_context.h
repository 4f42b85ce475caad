// The TLS client context of the connection to the relay: OpenSSL's defaults, TLS 1.2 or later, certificates
// verified with the trusted roots of the operating system and of OpenSSL.
#pragma once

#include <memory>

#include <openssl/ssl.h>

namespace vlk::agent {

struct SslContextDeleter {
  void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using SslContext = std::unique_ptr<SSL_CTX, SslContextDeleter>;

// Builds the context. Called before any other use of OpenSSL in the process. Reads the system's roots once,
// so roots that are added later are not trusted. Null if memory runs out; every handshake then fails.
[[nodiscard]] SslContext build_tls_context();

// Adds the operating system's roots to the context's store. A root that does not parse or is refused is
// skipped.
void import_system_roots(SSL_CTX* context);

}  // namespace vlk::agent
