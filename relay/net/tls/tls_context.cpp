// Sets the versions, the cipher suites and the certificate.
#include "relay/net/tls/tls_context.h"

#include <csignal>
#include <stdexcept>
#include <string>

#include <boost/asio/ssl/error.hpp>
#include <openssl/err.h>

namespace vlk::relay {
namespace {

// The cipher suites of TLS 1.2: forward secrecy, and no padding to attack. The suites of TLS 1.3 all have
// these two properties.
constexpr char kCiphers[] = "ECDHE+AESGCM:ECDHE+CHACHA20";

std::string last_failure() {
  const auto code = static_cast<int>(ERR_get_error());
  return boost::system::error_code(code, boost::asio::error::get_ssl_category()).message();
}

}  // namespace

TlsContext make_tls(const CertificateFiles& files) {
  // OpenSSL writes to sockets in the way that raises this signal when the peer has gone.
  std::signal(SIGPIPE, SIG_IGN);
  TlsContext context(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free);
  SSL_CTX* const tls = context.get();
  if (!tls || SSL_CTX_set_min_proto_version(tls, TLS1_2_VERSION) != 1 ||
      SSL_CTX_set_cipher_list(tls, kCiphers) != 1)
    throw std::runtime_error("the TLS library lacks the cipher suites that the relay needs");
  SSL_CTX_set_options(tls, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  SSL_CTX_set_mode(
      tls, SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  SSL_CTX_set_session_cache_mode(tls, SSL_SESS_CACHE_OFF);
  // One read of the system gets a record's header and content.
  SSL_CTX_set_read_ahead(tls, 1);
  // A key that needs a password is an error; OpenSSL would ask for the password on the terminal and wait.
  SSL_CTX_set_default_passwd_cb(tls, [](char*, int, int, void*) { return -1; });
  ERR_clear_error();
  if (SSL_CTX_use_certificate_chain_file(tls, files.certificate.c_str()) != 1)
    throw std::runtime_error("cannot use the certificate " + files.certificate + ": " + last_failure());
  if (SSL_CTX_use_PrivateKey_file(tls, files.key.c_str(), SSL_FILETYPE_PEM) != 1)
    throw std::runtime_error("cannot use the private key " + files.key + ": " + last_failure());
  return context;
}

}  // namespace vlk::relay
