// Builds the TLS client context.
#include "net/tls_context.h"

#include <openssl/x509.h>

#include "net/trust_roots.h"

namespace vlk::agent {

SslContext build_tls_context() {
  // OpenSSL must not clean up at exit: detached threads may still use it then, and the client's context is
  // freed even later.
  OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr);
  SslContext context(SSL_CTX_new(TLS_client_method()));
  if (!context) return context;
  SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
  import_system_roots(context.get());
  SSL_CTX_set_default_verify_paths(context.get());
  SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
  return context;
}

void import_system_roots(SSL_CTX* context) {
  X509_STORE* const store = SSL_CTX_get_cert_store(context);
  for_each_system_root([store](const unsigned char* der, std::size_t size) {
    const std::unique_ptr<X509, decltype(&X509_free)> certificate(
        d2i_X509(nullptr, &der, static_cast<long>(size)), &X509_free);
    // A refusal is ignored: its usual reason is that the store already has the root.
    if (certificate) X509_STORE_add_cert(store, certificate.get());
  });
}

}  // namespace vlk::agent
