// Makes certificates with OpenSSL and connects with it.
#include "relay/net/tls/pairs.h"

#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>

#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "relay/net/tls/tls_context.h"

namespace vlk::relay {
namespace {

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(SSL* connection) const { SSL_free(connection); }
  void operator()(SSL_CTX* settings) const { SSL_CTX_free(settings); }
  void operator()(BIO* bio) const { BIO_free_all(bio); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

std::string text_of(BIO* content) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(content, &data);
  return {data, static_cast<std::size_t>(size)};
}

}  // namespace

TestPair make_test_pair(std::int64_t seconds, std::int64_t begins_in) {
  const Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
  const Owned<X509> certificate(X509_new());
  X509_set_version(certificate.get(), X509_VERSION_3);
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), begins_in);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), seconds);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("localhost"),
                             -1, -1, 0);
  X509_set_issuer_name(certificate.get(), name);
  X509_set_pubkey(certificate.get(), key.get());
  X509_sign(certificate.get(), key.get(), EVP_sha256());
  const Owned<BIO> key_text(BIO_new(BIO_s_mem()));
  PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
  return {pem_of(certificate.get()), text_of(key_text.get())};
}

std::string make_locked_key() {
  const Owned<EVP_PKEY> key(EVP_EC_gen("P-256"));
  const Owned<BIO> text(BIO_new(BIO_s_mem()));
  const unsigned char password[] = {'a', 'b', 'c', 'd'};
  PEM_write_bio_PrivateKey(text.get(), key.get(), EVP_aes_128_cbc(), password, sizeof password, nullptr,
                           nullptr);
  return text_of(text.get());
}

void overwrite_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::trunc) << content;
  ::chmod(path.c_str(), 0600);
}

void rename_over(const std::string& path, const std::string& content) {
  overwrite_file(path + ".new", content);
  std::filesystem::rename(path + ".new", path);
}

void overwrite_pair(const CertificateFiles& files, const TestPair& pair) {
  overwrite_file(files.certificate, pair.certificate);
  overwrite_file(files.key, pair.key);
}

std::string served_certificate(unsigned short port) {
  const Owned<SSL_CTX> settings(SSL_CTX_new(TLS_client_method()));
  const Owned<BIO> connection(BIO_new_ssl_connect(settings.get()));
  BIO_set_conn_hostname(connection.get(), ("127.0.0.1:" + std::to_string(port)).c_str());
  if (BIO_do_handshake(connection.get()) != 1) return {};
  SSL* tls = nullptr;
  BIO_get_ssl(connection.get(), &tls);
  const Owned<X509> certificate(SSL_get1_peer_certificate(tls));
  return certificate ? pem_of(certificate.get()) : std::string();
}

std::string refusal_of(const CertificateFiles& server, const std::string& trusted, const std::string& host,
                       std::int64_t now) {
  const TlsContext serving = make_tls(server);
  const Owned<SSL_CTX> settings(SSL_CTX_new(TLS_client_method()));
  SSL_CTX_set_verify(settings.get(), SSL_VERIFY_PEER, nullptr);
  if (SSL_CTX_load_verify_locations(settings.get(), trusted.c_str(), nullptr) != 1) return "no trusted file";
  const Owned<SSL> here(SSL_new(settings.get()));
  const Owned<SSL> there(SSL_new(serving.get()));
  X509_VERIFY_PARAM* const rules = SSL_get0_param(here.get());
  X509_VERIFY_PARAM_set_time(rules, static_cast<std::time_t>(now));
  const bool set = is_address(host) ? X509_VERIFY_PARAM_set1_ip_asc(rules, host.c_str()) == 1
                                    : X509_VERIFY_PARAM_set1_host(rules, host.data(), host.size()) == 1;
  if (!set) return "no host";
  BIO* near = nullptr;
  BIO* far = nullptr;
  BIO_new_bio_pair(&near, 0, &far, 0);
  SSL_set_bio(here.get(), near, near);
  SSL_set_bio(there.get(), far, far);
  SSL_set_connect_state(here.get());
  SSL_set_accept_state(there.get());
  // Each round passes one flight of messages on; a handshake has fewer than this.
  constexpr int kRounds = 10;
  for (int i = 0; i < kRounds; ++i) {
    const bool done = SSL_do_handshake(here.get()) == 1;
    if (SSL_do_handshake(there.get()) == 1 && done) return {};
    const long verdict = SSL_get_verify_result(here.get());
    if (verdict != X509_V_OK) return X509_verify_cert_error_string(verdict);
  }
  return "the handshake does not end";
}

}  // namespace vlk::relay
