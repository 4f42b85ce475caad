// The files of the relay's certificate, and the self-signed certificate that is made on the first start.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

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

}  // namespace vlk::relay
