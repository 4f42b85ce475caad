// Certificates made on the spot, for servers that tests run.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>

namespace vantelink_test {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// A certificate authority that lives as long as the test. ECDSA P-256, valid for a day around now.
class TestAuthority {
 public:
  TestAuthority();

  struct Identity {
    Certificate certificate;
    Key key;
  };
  // A server certificate for the given DNS names.
  Identity issue(const std::vector<std::string>& dns_names) const;
  // One that nobody but its own key vouches for.
  static Identity issue_self_signed(const std::vector<std::string>& dns_names);

  std::vector<unsigned char> der() const;
  std::string pem() const;

 private:
  Key key_;
  Certificate certificate_;
};

}  // namespace vantelink_test
