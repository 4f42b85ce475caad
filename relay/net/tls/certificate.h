// The files of the relay's certificate, and the self-signed certificate that is made on the first start.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/types.h>

namespace vlk::relay {

// The time from which, before its end, a certificate is warned of.
inline constexpr std::int64_t kCertificateWarning = std::int64_t{30} * 24 * 3600;  // seconds

struct CertificateFiles {
  std::string certificate;  // PEM file with the chain, the relay's own certificate first
  std::string key;          // PEM file
};

// Makes a self-signed certificate in the folder `data` if it is missing, and returns its files. It is valid
// for `hosts` (names or addresses), "localhost" and 127.0.0.1. Only the files' owner can read the key.
// `remark` receives a sentence if an existing certificate does not match `hosts` or expires soon. Throws
// std::runtime_error.
[[nodiscard]] CertificateFiles self_made_certificate(const std::string& data,
                                                     const std::vector<std::string>& hosts,
                                                     std::string& remark);

// Whether the certificate is valid for this name or address. `certificate` is only read.
[[nodiscard]] bool is_for_host(X509* certificate, const std::string& host);

}  // namespace vlk::relay
