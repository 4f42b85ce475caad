// Certificates and keys in PEM files: reading them, their dates and their names.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "relay/net/tls/handles.h"

namespace vlk::relay {

// The time from which, before its end, a certificate is warned of.
inline constexpr std::int64_t kCertificateWarning = std::int64_t{30} * 24 * 3600;  // seconds

struct CertificateFiles {
  std::string certificate;  // PEM file with the chain, the relay's own certificate first
  std::string key;          // PEM file
};

// The certificates of a PEM file in its order; empty if the file cannot be read or has none.
[[nodiscard]] std::vector<Certificate> read_chain(const std::string& file);
// The private key in a PEM file; null if it cannot be read or needs a password.
[[nodiscard]] PrivateKey read_key(const std::string& file);

[[nodiscard]] std::string pem_of(X509* certificate);
[[nodiscard]] std::string pem_of(EVP_PKEY* key);

// The dates between which a certificate is valid, in seconds since 1970. Throw std::runtime_error if the date
// is not valid.
[[nodiscard]] std::int64_t begin_of(const X509* certificate);
[[nodiscard]] std::int64_t end_of(const X509* certificate);
// A date as 2026-11-21T12:00:00Z.
[[nodiscard]] std::string date_text(std::int64_t seconds);

[[nodiscard]] bool is_address(const std::string& host);
// A host as certificates have it: an address in its shortest form, a name in small letters.
[[nodiscard]] std::string plain_host(const std::string& host);
// The names and addresses for which a certificate is valid, as plain_host() writes them, in order. Empty if
// it has none.
[[nodiscard]] std::vector<std::string> names_of(X509* certificate);
// Whether the certificate is valid for this name or address. `certificate` is only read.
[[nodiscard]] bool is_for_host(X509* certificate, const std::string& host);

}  // namespace vlk::relay
