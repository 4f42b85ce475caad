// Random secrets and hashes of secrets, implemented with libsodium.
#include "relay/base/secrets.h"

#include <stdexcept>

#include <sodium.h>

namespace vlk::relay {

void start_sodium() {
  if (sodium_init() < 0) throw std::runtime_error("The cryptographic library could not be started.");
}

std::string random_token(std::size_t bytes) {
  Bytes raw(bytes);
  randombytes_buf(raw.data(), raw.size());
  std::string text(sodium_base64_encoded_len(bytes, sodium_base64_VARIANT_URLSAFE_NO_PADDING), '\0');
  sodium_bin2base64(text.data(), text.size(), raw.data(), raw.size(),
                    sodium_base64_VARIANT_URLSAFE_NO_PADDING);
  text.pop_back();
  return text;
}

std::uint32_t random_number() {
  return randombytes_random();
}

std::string random_password() {
  static constexpr std::string_view kAlphabet = "abcdefghjkmnpqrstuvwxyz123456789";
  static_assert(kAlphabet.size() == 32);
  std::string password;
  for (int i = 0; i < 20; ++i) {
    if (i > 0 && i % 5 == 0) password += '-';
    password += kAlphabet[randombytes_uniform(kAlphabet.size())];
  }
  return password;
}

Bytes hash_secret(std::string_view secret) {
  Bytes hash(crypto_generichash_BYTES);
  crypto_generichash(hash.data(), hash.size(), reinterpret_cast<const unsigned char*>(secret.data()),
                     secret.size(), nullptr, 0);
  return hash;
}

bool same_hash(const Bytes& a, const Bytes& b) {
  return a.size() == b.size() && sodium_memcmp(a.data(), b.data(), a.size()) == 0;
}

std::string to_hex(std::span<const std::uint8_t> bytes) {
  std::string digits(bytes.size() * 2 + 1, '\0');
  sodium_bin2hex(digits.data(), digits.size(), bytes.data(), bytes.size());
  digits.pop_back();
  return digits;
}

Bytes from_hex(std::string_view digits) {
  Bytes bytes(digits.size() / 2);
  // Without a place for the end, other characters and an odd number of digits are errors.
  const int result =
      sodium_hex2bin(bytes.data(), bytes.size(), digits.data(), digits.size(), nullptr, nullptr, nullptr);
  return result == 0 ? bytes : Bytes();
}

std::string password_fault(const std::string& password) {
  if (password.size() < kShortestPassword)
    return "needs at least " + std::to_string(kShortestPassword) + " characters";
  if (password.size() > kLongestPassword)
    return "can have at most " + std::to_string(kLongestPassword) + " bytes";
  return {};
}

}  // namespace vlk::relay
