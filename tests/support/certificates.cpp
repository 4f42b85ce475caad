// Makes certificates with OpenSSL.
#include "support/certificates.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace vantelink_test {
namespace {

constexpr long kHalfDay = 43200;  // seconds

Key make_key() {
  return Key(EVP_EC_gen("P-256"), &EVP_PKEY_free);
}

void add_extension(X509* certificate, X509* issuer, int nid, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
      X509V3_EXT_conf_nid(nullptr, &context, nid, value.c_str()), &X509_EXTENSION_free);
  X509_add_ext(certificate, extension.get(), -1);
}

Certificate make_certificate(const std::string& name, EVP_PKEY* key) {
  Certificate certificate(X509_new(), &X509_free);
  X509_set_version(certificate.get(), X509_VERSION_3);
  unsigned char serial[8];
  RAND_bytes(serial, sizeof serial);
  serial[0] &= 0x7F;
  const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_bin2bn(serial, sizeof serial, nullptr),
                                                           &BN_free);
  BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate.get()));
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kHalfDay);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kHalfDay);
  X509_set_pubkey(certificate.get(), key);
  X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate.get()), "CN", MBSTRING_UTF8,
                             reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
  return certificate;
}

// Makes a server's key and certificate, signed by the issuer, or self-signed when `issuer` is null.
TestAuthority::Identity make_identity(const std::vector<std::string>& dns_names, X509* issuer,
                                      EVP_PKEY* issuer_key) {
  Key key = make_key();
  Certificate certificate = make_certificate("Test server", key.get());
  if (issuer == nullptr) {
    issuer = certificate.get();
    issuer_key = key.get();
  }
  X509_set_issuer_name(certificate.get(), X509_get_subject_name(issuer));
  std::string names;
  for (const std::string& name : dns_names)
    names += (names.empty() ? "DNS:" : ",DNS:") + name;
  add_extension(certificate.get(), issuer, NID_subject_alt_name, names);
  X509_sign(certificate.get(), issuer_key, EVP_sha256());
  return {std::move(certificate), std::move(key)};
}

// Initialises OpenSSL as the agent does, without a clean-up at exit: a detached thread of the code under test
// may still use the library while the process exits. The first initialisation counts, and tests issue
// certificates before they create an agent.
bool initialise_without_clean_up() {
  return OPENSSL_init_crypto(OPENSSL_INIT_NO_ATEXIT, nullptr) == 1;
}

[[maybe_unused]] const bool kInitialised = initialise_without_clean_up();

}  // namespace

TestAuthority::TestAuthority()
    : key_(make_key()), certificate_(make_certificate("Test authority", key_.get())) {
  X509_set_issuer_name(certificate_.get(), X509_get_subject_name(certificate_.get()));
  add_extension(certificate_.get(), certificate_.get(), NID_basic_constraints, "critical,CA:TRUE");
  add_extension(certificate_.get(), certificate_.get(), NID_key_usage, "critical,keyCertSign");
  X509_sign(certificate_.get(), key_.get(), EVP_sha256());
}

TestAuthority::Identity TestAuthority::issue(const std::vector<std::string>& dns_names) const {
  return make_identity(dns_names, certificate_.get(), key_.get());
}

TestAuthority::Identity TestAuthority::issue_self_signed(const std::vector<std::string>& dns_names) {
  return make_identity(dns_names, nullptr, nullptr);
}

std::vector<unsigned char> TestAuthority::der() const {
  unsigned char* bytes = nullptr;
  const int size = i2d_X509(certificate_.get(), &bytes);
  std::vector<unsigned char> result(bytes, bytes + size);
  OPENSSL_free(bytes);
  return result;
}

std::string TestAuthority::pem() const {
  const std::unique_ptr<BIO, decltype(&BIO_free)> memory(BIO_new(BIO_s_mem()), &BIO_free);
  PEM_write_bio_X509(memory.get(), certificate_.get());
  char* text = nullptr;
  const long size = BIO_get_mem_data(memory.get(), &text);
  return {text, static_cast<std::size_t>(size)};
}

}  // namespace vantelink_test
