// Which versions and cipher suites of TLS the relay accepts. Its certificate has an RSA key here, because
// suites without forward secrecy exist for such keys only.
#include "relay/net/tls/tls_context.h"

#include <sys/stat.h>

#include <memory>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

struct Free {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
  void operator()(X509* certificate) const { X509_free(certificate); }
  void operator()(SSL_CTX* settings) const { SSL_CTX_free(settings); }
  void operator()(SSL* connection) const { SSL_free(connection); }
  void operator()(std::FILE* file) const { std::fclose(file); }
};
template <class T>
using Owned = std::unique_ptr<T, Free>;

class TlsContextTest : public testing::Test {
 protected:
  TlsContextTest() {
    const Owned<EVP_PKEY> key(EVP_RSA_gen(2048));
    const Owned<X509> certificate(X509_new());
    X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -3600);
    X509_gmtime_adj(X509_getm_notAfter(certificate.get()), 3600);
    X509_set_pubkey(certificate.get(), key.get());
    X509_sign(certificate.get(), key.get(), EVP_sha256());
    const Owned<std::FILE> key_file(std::fopen(files_.key.c_str(), "w"));
    const Owned<std::FILE> certificate_file(std::fopen(files_.certificate.c_str(), "w"));
    PEM_write_PrivateKey(key_file.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    PEM_write_X509(certificate_file.get(), certificate.get());
  }

  // The suite that a client with these settings and the relay agree on; empty if they do not agree.
  [[nodiscard]] std::string agreed(int version, const char* suites) const {
    const TlsContext tls = make_tls(files_);
    const Owned<SSL_CTX> settings(SSL_CTX_new(TLS_client_method()));
    SSL_CTX_set_security_level(settings.get(), 0);
    SSL_CTX_set_min_proto_version(settings.get(), version);
    SSL_CTX_set_max_proto_version(settings.get(), version);
    EXPECT_EQ(SSL_CTX_set_cipher_list(settings.get(), suites), 1) << suites;
    const Owned<SSL> client(SSL_new(settings.get())), server(SSL_new(tls.get()));
    BIO *near = nullptr, *far = nullptr;
    BIO_new_bio_pair(&near, 0, &far, 0);
    SSL_set_bio(client.get(), near, near);
    SSL_set_bio(server.get(), far, far);
    SSL_set_connect_state(client.get());
    SSL_set_accept_state(server.get());
    for (int round = 0; round < 10; ++round) {
      const int here = SSL_do_handshake(client.get());
      const int there = SSL_do_handshake(server.get());
      if (here == 1 && there == 1) return SSL_get_cipher_name(client.get());
    }
    return {};
  }

  const vantelink_test::TempFolder folder_;
  const CertificateFiles files_{folder_.path() / "cert.pem", folder_.path() / "key.pem"};
};

TEST_F(TlsContextTest, OnlySuitesWithForwardSecrecyAndAuthenticatedEncryptionAreAccepted) {
  for (const char* suite :
       {"ECDHE-RSA-AES128-GCM-SHA256", "ECDHE-RSA-AES256-GCM-SHA384", "ECDHE-RSA-CHACHA20-POLY1305"})
    EXPECT_EQ(agreed(TLS1_2_VERSION, suite), suite);
  for (const char* suite : {"AES128-GCM-SHA256", "AES256-SHA", "ECDHE-RSA-AES128-SHA",
                            "ECDHE-RSA-AES256-SHA384", "DHE-RSA-AES128-GCM-SHA256", "aNULL", "PSK"})
    EXPECT_EQ(agreed(TLS1_2_VERSION, suite), "") << suite;
}

TEST_F(TlsContextTest, Tls12And13AreAcceptedAndOlderVersionsAreNot) {
  EXPECT_TRUE(agreed(TLS1_3_VERSION, "ALL").starts_with("TLS_")) << agreed(TLS1_3_VERSION, "ALL");
  EXPECT_NE(agreed(TLS1_2_VERSION, "ALL"), "");
  EXPECT_EQ(agreed(TLS1_1_VERSION, "ALL:@SECLEVEL=0"), "");
  EXPECT_EQ(agreed(TLS1_VERSION, "ALL:@SECLEVEL=0"), "");
}

TEST_F(TlsContextTest, MissingCertificateAndMissingKeyAreRefused) {
  EXPECT_THROW((void)make_tls({folder_.path() / "none.pem", files_.key}), std::runtime_error);
  EXPECT_THROW((void)make_tls({files_.certificate, folder_.path() / "none.pem"}), std::runtime_error);
}

}  // namespace
}  // namespace vlk::relay
