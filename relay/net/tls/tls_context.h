// The relay's TLS settings.
#pragma once

#include <memory>

#include <openssl/ssl.h>

#include "relay/net/tls/certificate.h"

namespace vlk::relay {

using TlsContext = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

// Settings for TLS 1.2 and 1.3 with the given certificate. Each connection has keys of its own (forward
// secrecy), so that the private key does not decrypt recorded connections. Sessions are not cached. Makes the
// process ignore SIGPIPE. Throws std::runtime_error with a sentence for the operator.
[[nodiscard]] TlsContext make_tls(const CertificateFiles& files);

}  // namespace vlk::relay
