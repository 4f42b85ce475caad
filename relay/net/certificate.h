// The relay's certificate: the operator's own, or one that is made on the first start.
#pragma once

#include <string>
#include <vector>

namespace vlk::relay {

struct CertificateFiles {
  std::string certificate;  // PEM, the chain from the leaf up
  std::string key;          // PEM
};

// The files of a self-signed certificate in folder `data` for `hosts` (names or addresses), "localhost" and
// 127.0.0.1; made when missing, the key readable by its owner alone. `remark` receives a sentence when the
// one found does not fit `hosts` or ends soon. Throws std::runtime_error.
CertificateFiles self_made_certificate(const std::string& data, const std::vector<std::string>& hosts,
                                       std::string& remark);

}  // namespace vlk::relay
