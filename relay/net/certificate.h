// The relay's certificate: the operator's, or a self-signed one that the first start makes.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

struct CertificateFiles {
  std::string certificate;  // PEM, the chain from the leaf upwards
  std::string key;          // PEM
};

// The files in folder `data` of a self-signed certificate for `hosts` (names or addresses), "localhost" and
// 127.0.0.1. Makes them if they are missing; only their owner can read the key. `remark` receives a sentence
// if the existing certificate does not match `hosts` or expires soon. Throws std::runtime_error.
[[nodiscard]] CertificateFiles self_made_certificate(const std::string& data,
                                                     const std::vector<std::string>& hosts,
                                                     std::string& remark);

}  // namespace vlk::relay
