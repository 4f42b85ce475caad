// Makes certificates with OpenSSL.
#include "relay/net/tls/authority.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <stdexcept>

#include <boost/asio/ip/address.hpp>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

namespace vlk::relay {
namespace {

constexpr std::int64_t kDaySeconds = 24 * 3600;
constexpr std::int64_t kAuthoritySeconds = 3652 * kDaySeconds;  // ten years
constexpr std::int64_t kLeafSeconds = 90 * kDaySeconds;
constexpr std::size_t kLongestHost = 32;  // bytes of the host in an authority's name, which has 64

using Extension = std::unique_ptr<X509_EXTENSION, Freed<X509_EXTENSION_free>>;
using Constraints = std::unique_ptr<NAME_CONSTRAINTS, Freed<NAME_CONSTRAINTS_free>>;

void require(bool good) {
  if (good) return;
  ERR_clear_error();
  throw std::runtime_error("The relay's certificate could not be made.");
}

void add_extension(X509* certificate, X509* issuer, int id, const std::string& value) {
  X509V3_CTX context;
  X509V3_set_ctx_nodb(&context);
  X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
  const Extension extension(X509V3_EXT_conf_nid(nullptr, &context, id, value.c_str()));
  require(extension && X509_add_ext(certificate, extension.get(), -1) == 1);
}

std::string listed(const std::vector<std::string>& names, const std::string& before) {
  std::string text;
  for (const std::string& name : names) {
    if (!text.empty()) text += ',';
    text += before;
    text += is_address(name) ? "IP:" : "DNS:";
    text += name;
  }
  return text;
}

// A constraint on addresses is a network; this one has a single address. A constraint on names includes the
// names below.
std::string constraint_text(const std::vector<std::string>& names) {
  std::string text = "critical";
  for (const std::string& name : names) {
    text += "," + listed({name.starts_with("*.") ? name.substr(2) : name}, "permitted;");
    if (!is_address(name)) continue;
    const bool four = boost::asio::ip::make_address(name).is_v4();
    text += four ? "/255.255.255.255" : "/ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff";
  }
  return text;
}

void set_serial(X509* certificate) {
  unsigned char serial[16];
  require(RAND_bytes(serial, sizeof serial) == 1);
  serial[0] = static_cast<unsigned char>((serial[0] & 0x7f) | 0x40);
  const std::unique_ptr<BIGNUM, Freed<BN_free>> number(BN_bin2bn(serial, sizeof serial, nullptr));
  require(number && BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr);
}

void set_dates(X509* certificate, std::int64_t now, std::int64_t end) {
  // The certificate is valid from yesterday on, so that machines whose clock is slow accept it.
  require(ASN1_TIME_set(X509_getm_notBefore(certificate), static_cast<std::time_t>(now - kDaySeconds)) &&
          ASN1_TIME_set(X509_getm_notAfter(certificate), static_cast<std::time_t>(end)));
}

// A certificate with a new key, without issuer, extensions and signature.
CertificateAndKey begin_certificate(const std::string& common_name, std::int64_t now, std::int64_t end) {
  CertificateAndKey made{Certificate(X509_new()), PrivateKey(EVP_EC_gen("P-256"))};
  require(made.certificate && made.key);
  X509* const certificate = made.certificate.get();
  require(X509_set_version(certificate, X509_VERSION_3) == 1);
  set_serial(certificate);
  set_dates(certificate, now, end);
  const auto* text = reinterpret_cast<const unsigned char*>(common_name.c_str());
  require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text, -1, -1,
                                     0) == 1);
  require(X509_set_pubkey(certificate, made.key.get()) == 1);
  return made;
}

bool is_below(const std::string& name, const std::string& base) {
  if (base.empty() || name == base) return true;
  return name.size() > base.size() && name.ends_with(base) &&
         (base.front() == '.' || name.at(name.size() - base.size() - 1) == '.');
}

// `network` is an address followed by a mask of the same size.
bool is_in_network(const std::string& host, const ASN1_OCTET_STRING* network) {
  const auto address = boost::asio::ip::make_address(host);
  std::vector<unsigned char> bytes;
  const auto take = [&bytes](const auto& from) { bytes.assign(from.begin(), from.end()); };
  address.is_v4() ? take(address.to_v4().to_bytes()) : take(address.to_v6().to_bytes());
  if (static_cast<std::size_t>(ASN1_STRING_length(network)) != 2 * bytes.size()) return false;
  const unsigned char* base = ASN1_STRING_get0_data(network);
  const unsigned char* mask = base + bytes.size();
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if ((bytes[i] & mask[i]) != (base[i] & mask[i])) return false;
  }
  return true;
}

}  // namespace

std::vector<std::string> names_for(const std::vector<std::string>& hosts) {
  std::vector<std::string> names{"localhost", "127.0.0.1"};
  for (const std::string& host : hosts) {
    if (host.empty() || host.find_first_of(", \t\r\n;/") != std::string::npos)
      throw std::runtime_error("\"" + host + "\" is not a host name.");
    names.push_back(plain_host(host));
  }
  std::sort(names.begin(), names.end());
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return names;
}

CertificateAndKey make_authority(const std::vector<std::string>& hosts, std::int64_t now) {
  // The date tells two authorities of one relay apart in a list of certificates.
  const std::string host = hosts.empty() ? "localhost" : hosts.front().substr(0, kLongestHost);
  CertificateAndKey made = begin_certificate("Vantelink relay " + host + " " + date_text(now).substr(0, 10),
                                             now, now + kAuthoritySeconds);
  X509* const certificate = made.certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(certificate)) == 1);
  const auto add = [certificate](int id, const std::string& value) {
    add_extension(certificate, certificate, id, value);
  };
  // Machines that trust it must not trust more than leaves of the relay that its key signs.
  add(NID_basic_constraints, "critical,CA:TRUE,pathlen:0");
  add(NID_key_usage, "critical,keyCertSign,cRLSign");
  add(NID_ext_key_usage, "serverAuth");
  add(NID_name_constraints, constraint_text(names_for(hosts)));
  add(NID_subject_key_identifier, "hash");
  require(X509_sign(certificate, made.key.get(), EVP_sha256()) > 0);
  return made;
}

CertificateAndKey make_leaf(const Certificate& authority, const PrivateKey& key,
                            const std::vector<std::string>& names, std::int64_t now) {
  X509* const issuer = authority.get();
  const std::int64_t end = std::min(now + kLeafSeconds, end_of(issuer));
  // Clients look at the alternative names only.
  CertificateAndKey made = begin_certificate("Vantelink relay", now, end);
  X509* const certificate = made.certificate.get();
  require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1);
  const auto add = [certificate, issuer](int id, const std::string& value) {
    add_extension(certificate, issuer, id, value);
  };
  add(NID_basic_constraints, "critical,CA:FALSE");
  add(NID_key_usage, "critical,digitalSignature");
  add(NID_ext_key_usage, "serverAuth");
  add(NID_subject_key_identifier, "hash");
  if (X509_get0_subject_key_id(issuer)) add(NID_authority_key_identifier, "keyid:always");
  add(NID_subject_alt_name, listed(names, ""));
  require(X509_sign(certificate, key.get(), EVP_sha256()) > 0);
  return made;
}

bool is_authority(X509* certificate) {
  return X509_check_ca(certificate) == 1;
}

bool belong_together(const Certificate& certificate, const PrivateKey& key) {
  const bool together = X509_check_private_key(certificate.get(), key.get()) == 1;
  ERR_clear_error();
  return together;
}

bool has_signed(const Certificate& authority, const Certificate& leaf) {
  const bool issued = X509_check_issued(authority.get(), leaf.get()) == X509_V_OK &&
                      X509_verify(leaf.get(), X509_get0_pubkey(authority.get())) == 1;
  ERR_clear_error();
  return issued;
}

bool permits(const Certificate& authority, const std::string& host) {
  const Constraints constraints(static_cast<NAME_CONSTRAINTS*>(
      X509_get_ext_d2i(authority.get(), NID_name_constraints, nullptr, nullptr)));
  if (!constraints) return true;
  const std::string name = plain_host(host);
  const int type = is_address(name) ? GEN_IPADD : GEN_DNS;
  // Without a constraint on names, all names are permitted; the same holds for addresses.
  bool constrained = false;
  for (int i = 0; i < sk_GENERAL_SUBTREE_num(constraints->permittedSubtrees); ++i) {
    const GENERAL_NAME* base = sk_GENERAL_SUBTREE_value(constraints->permittedSubtrees, i)->base;
    if (base->type != type) continue;
    constrained = true;
    if (type == GEN_IPADD) {
      if (is_in_network(name, base->d.iPAddress)) return true;
      continue;
    }
    const auto* data = reinterpret_cast<const char*>(ASN1_STRING_get0_data(base->d.dNSName));
    const auto size = static_cast<std::size_t>(ASN1_STRING_length(base->d.dNSName));
    if (is_below(name, plain_host({data, size}))) return true;
  }
  return !constrained;
}

}  // namespace vlk::relay
