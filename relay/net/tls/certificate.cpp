// Reads certificates with OpenSSL.
#include "relay/net/tls/certificate.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <stdexcept>

#include <boost/asio/ip/address.hpp>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509v3.h>

namespace vlk::relay {
namespace {

using Names = std::unique_ptr<GENERAL_NAMES, Freed<GENERAL_NAMES_free>>;

// The relay has nobody to ask for a password; OpenSSL would ask on the terminal.
int no_password(char*, int, int, void*) {
  return -1;
}

std::string text_of(BIO* content) {
  char* data = nullptr;
  const long size = BIO_get_mem_data(content, &data);
  return {data, static_cast<std::size_t>(size)};
}

std::int64_t seconds_of(const ASN1_TIME* time) {
  std::tm parts{};
  if (ASN1_TIME_to_tm(time, &parts) != 1) throw std::runtime_error("a date of the certificate is not valid");
  return static_cast<std::int64_t>(::timegm(&parts));
}

std::string address_text(const ASN1_OCTET_STRING* bytes) {
  const unsigned char* data = ASN1_STRING_get0_data(bytes);
  const auto size = static_cast<std::size_t>(ASN1_STRING_length(bytes));
  boost::asio::ip::address_v4::bytes_type four{};
  boost::asio::ip::address_v6::bytes_type sixteen{};
  if (size == four.size()) {
    std::copy_n(data, size, four.begin());
    return boost::asio::ip::address_v4(four).to_string();
  }
  if (size != sixteen.size()) return {};
  std::copy_n(data, size, sixteen.begin());
  return boost::asio::ip::address_v6(sixteen).to_string();
}

}  // namespace

std::vector<Certificate> read_chain(const std::string& file) {
  const Bio bio(BIO_new_file(file.c_str(), "r"));
  std::vector<Certificate> chain;
  while (bio) {
    Certificate next(PEM_read_bio_X509(bio.get(), nullptr, no_password, nullptr));
    if (!next) break;
    chain.push_back(std::move(next));
  }
  // The end of the file is an error to OpenSSL, which a later call would take for its own.
  ERR_clear_error();
  return chain;
}

PrivateKey read_key(const std::string& file) {
  const Bio bio(BIO_new_file(file.c_str(), "r"));
  PrivateKey key(bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, no_password, nullptr) : nullptr);
  ERR_clear_error();
  return key;
}

std::string pem_of(X509* certificate) {
  const Bio text(BIO_new(BIO_s_mem()));
  if (!text || PEM_write_bio_X509(text.get(), certificate) != 1)
    throw std::runtime_error("a certificate could not be written");
  return text_of(text.get());
}

std::string pem_of(EVP_PKEY* key) {
  const Bio text(BIO_new(BIO_s_mem()));
  if (!text || PEM_write_bio_PrivateKey(text.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1)
    throw std::runtime_error("a private key could not be written");
  return text_of(text.get());
}

std::int64_t begin_of(const X509* certificate) {
  return seconds_of(X509_get0_notBefore(certificate));
}

std::int64_t end_of(const X509* certificate) {
  return seconds_of(X509_get0_notAfter(certificate));
}

std::string date_text(std::int64_t seconds) {
  const auto time = static_cast<std::time_t>(seconds);
  std::tm parts{};
  ::gmtime_r(&time, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

bool is_address(const std::string& host) {
  boost::system::error_code error;
  boost::asio::ip::make_address(host, error);
  return !error;
}

std::string plain_host(const std::string& host) {
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(host, error);
  if (!error) return address.to_string();
  std::string name = host;
  std::transform(name.begin(), name.end(), name.begin(),
                 [](char c) { return static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c); });
  return name;
}

std::vector<std::string> names_of(X509* certificate) {
  const Names all(
      static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
  std::vector<std::string> names;
  for (int i = 0; all && i < sk_GENERAL_NAME_num(all.get()); ++i) {
    const GENERAL_NAME* name = sk_GENERAL_NAME_value(all.get(), i);
    if (name->type == GEN_IPADD) names.push_back(address_text(name->d.iPAddress));
    if (name->type != GEN_DNS) continue;
    const auto* data = reinterpret_cast<const char*>(ASN1_STRING_get0_data(name->d.dNSName));
    names.push_back(plain_host({data, static_cast<std::size_t>(ASN1_STRING_length(name->d.dNSName))}));
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool is_for_host(X509* certificate, const std::string& host) {
  const int fits = is_address(host) ? X509_check_ip_asc(certificate, host.c_str(), 0)
                                    : X509_check_host(certificate, host.data(), host.size(), 0, nullptr);
  return fits == 1;
}

}  // namespace vlk::relay
