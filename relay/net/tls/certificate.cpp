// Makes the self-signed certificate. Its key is ECDSA P-256, which makes handshakes cheap when all agents
// reconnect at once.
#include "relay/net/tls/certificate.h"

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <boost/asio/ip/address.hpp>
#include <openssl/bio.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include "relay/net/private_files.h"
#include "relay/net/tls/handles.h"

namespace vlk::relay {
namespace {

// The certificate's lifetime. Some browsers refuse certificates with a longer lifetime.
constexpr long kLifeDays = 825;
constexpr long kDaySeconds = 24 * 3600;

using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;

bool is_address(const std::string& host) {
  boost::system::error_code error;
  boost::asio::ip::make_address(host, error);
  return !error;
}

void require(bool good) {
  if (!good) throw std::runtime_error("The relay's certificate could not be made.");
}

std::string alternative_names(const std::vector<std::string>& hosts) {
  std::vector<std::string> all = hosts;
  for (const char* local : {"localhost", "127.0.0.1"}) {
    if (std::find(all.begin(), all.end(), local) == all.end()) all.emplace_back(local);
  }
  std::string text;
  for (const std::string& host : all) {
    if (host.find_first_of(", \t\r\n") != std::string::npos) {
      throw std::runtime_error("\"" + host + "\" is not a host name.");
    }
    if (!text.empty()) text += ',';
    text += (is_address(host) ? "IP:" : "DNS:") + host;
  }
  return text;
}

void add_extension(X509* certificate, int id, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

Certificate make_certificate(EVP_PKEY* key, const std::vector<std::string>& hosts) {
  Certificate certificate(X509_new());
  require(certificate != nullptr);
  unsigned char serial[16];
  require(RAND_bytes(serial, sizeof serial) == 1);
  serial[0] = static_cast<unsigned char>((serial[0] & 0x7f) | 0x40);
  const std::unique_ptr<BIGNUM, Freed<BN_free>> number(BN_bin2bn(serial, sizeof serial, nullptr));
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate.get())) != nullptr);
  X509_set_version(certificate.get(), X509_VERSION_3);
  // The certificate is valid from yesterday on, so that machines whose clock is slow accept it.
  X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -kDaySeconds);
  X509_gmtime_adj(X509_getm_notAfter(certificate.get()), kLifeDays * kDaySeconds);
  X509_NAME* name = X509_get_subject_name(certificate.get());
  const std::string common = hosts.front().substr(0, 64);
  require(X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                                     reinterpret_cast<const unsigned char*>(common.c_str()), -1, -1, 0) == 1);
  require(X509_set_issuer_name(certificate.get(), name) == 1);
  require(X509_set_pubkey(certificate.get(), key) == 1);
  // The certificate is not a certificate authority: machines that trust it must not trust other certificates
  // that its key could sign.
  add_extension(certificate.get(), NID_basic_constraints, "critical,CA:FALSE");
  add_extension(certificate.get(), NID_ext_key_usage, "serverAuth");
  add_extension(certificate.get(), NID_subject_key_identifier, "hash");
  add_extension(certificate.get(), NID_subject_alt_name, alternative_names(hosts));
  require(X509_sign(certificate.get(), key, EVP_sha256()) > 0);
  return certificate;
}

std::string_view text_of(BIO* content) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(content, &data);
  return {data, static_cast<std::size_t>(size)};
}

void make_files(const CertificateFiles& files, const std::vector<std::string>& hosts) {
  const Key key(EVP_EC_gen("P-256"));
  require(key != nullptr);
  const Certificate certificate = make_certificate(key.get(), hosts);
  const Bio key_text(BIO_new(BIO_s_mem()));
  const Bio certificate_text(BIO_new(BIO_s_mem()));
  require(PEM_write_bio_PrivateKey(key_text.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr) == 1);
  require(PEM_write_bio_X509(certificate_text.get(), certificate.get()) == 1);
  write_durably(files.key, text_of(key_text.get()), 0600);
  write_durably(files.certificate, text_of(certificate_text.get()), 0644);
}

std::string remark_on(const CertificateFiles& files, const std::vector<std::string>& hosts) {
  const Bio file(BIO_new_file(files.certificate.c_str(), "r"));
  const Certificate certificate(file ? PEM_read_bio_X509(file.get(), nullptr, nullptr, nullptr) : nullptr);
  if (!certificate) throw std::runtime_error(files.certificate + " does not contain a certificate.");
  const std::string advice =
      " To get a new one, delete " + files.certificate + " and " + files.key + " and restart the relay.";
  for (const std::string& host : hosts) {
    if (!is_for_host(certificate.get(), host)) return "The certificate is not for " + host + "." + advice;
  }
  std::time_t soon = std::time(nullptr) + kCertificateWarning;
  if (X509_cmp_time(X509_get0_notAfter(certificate.get()), &soon) < 0) {
    return "The certificate expires within " + std::to_string(kCertificateWarning / kDaySeconds) + " days." +
           advice;
  }
  return {};
}

}  // namespace

bool is_for_host(X509* certificate, const std::string& host) {
  const int fits = is_address(host) ? X509_check_ip_asc(certificate, host.c_str(), 0)
                                    : X509_check_host(certificate, host.data(), host.size(), 0, nullptr);
  return fits == 1;
}

CertificateFiles self_made_certificate(const std::string& data, const std::vector<std::string>& hosts,
                                       std::string& remark) {
  CertificateFiles files{data + "/relay-cert.pem", data + "/relay-key.pem"};
  const bool has_certificate = std::filesystem::exists(files.certificate);
  if (has_certificate && std::filesystem::exists(files.key)) {
    remark = remark_on(files, hosts);
    return files;
  }
  // The key is written first, so a key without a certificate comes from an interrupted first start and can be
  // replaced. A certificate without its key may be trusted by machines already, so the operator must decide.
  if (has_certificate)
    throw std::runtime_error(files.key + " is missing, though " + files.certificate + " exists.");
  make_files(files, hosts);
  return files;
}

}  // namespace vlk::relay
