// Password hashing, implemented with libsodium. The fuzz targets replace this file, because a hash takes
// 100 ms.
#include <stdexcept>

#include <sodium.h>

#include "relay/base/secrets.h"

namespace vlk::relay {

std::string hash_password(const std::string& password) {
  std::string hash(crypto_pwhash_STRBYTES, '\0');
  if (crypto_pwhash_str(hash.data(), password.data(), password.size(), crypto_pwhash_OPSLIMIT_INTERACTIVE,
                        crypto_pwhash_MEMLIMIT_INTERACTIVE) != 0) {
    throw std::runtime_error("There is not enough memory to hash a password.");
  }
  hash.resize(hash.find('\0'));
  return hash;
}

bool verify_password(const std::string& hash, const std::string& password) {
  return crypto_pwhash_str_verify(hash.c_str(), password.data(), password.size()) == 0;
}

}  // namespace vlk::relay
