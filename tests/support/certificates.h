// A certificate authority for servers that tests run. Keys and certificates are made at run time.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <openssl/ssl.h>

namespace vantelink_test {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;

// Issues ECDSA P-256 certificates that are valid from twelve hours ago to twelve hours from now.
class TestAuthority {
 public:
  TestAuthority();

  struct Identity {
    Certificate certificate;
    Key key;
  };
  // A server certificate for the given DNS names.
  Identity issue(const std::vector<std::string>& dns_names) const;
  // A server certificate signed with its own key.
  static Identity issue_self_signed(const std::vector<std::string>& dns_names);

  std::vector<unsigned char> der() const;
  std::string pem() const;

 private:
  Key key_;
  Certificate certificate_;
};

}  // namespace vantelink_test
