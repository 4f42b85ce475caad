// One-time codes, made by liboath, and backup codes.
#include "relay/people/totp.h"

#include <liboath/oath.h>

#include <array>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>

#include <sodium.h>

#include "relay/base/secrets.h"

namespace vlk::relay {
namespace {

constexpr char kIssuer[] = "Vantelink";
constexpr std::string_view kCodeAlphabet = "abcdefghjkmnpqrstuvwxyz123456789";
static_assert(kCodeAlphabet.size() == 32);
constexpr std::size_t kCodeLength = 10;

using Code = std::array<char, kTotpDigits + 1>;  // with the final 0

Code code_of_step(const Bytes& secret, std::int64_t step) {
  static const int started = oath_init();
  if (started != OATH_OK) throw std::runtime_error(oath_strerror(started));
  Code code{};
  const int result =
      oath_totp_generate(reinterpret_cast<const char*>(secret.data()), secret.size(), step * kTotpStepSeconds,
                         kTotpStepSeconds, 0, kTotpDigits, code.data());
  if (result != OATH_OK) throw std::runtime_error(oath_strerror(result));
  return code;
}

std::string escaped_for_uri(std::string_view text) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    if (plain) {
      result += c;
    } else {
      result += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    }
  }
  return result;
}

}  // namespace

Bytes new_totp_secret() {
  Bytes secret(kTotpSecretBytes);
  randombytes_buf(secret.data(), secret.size());
  return secret;
}

std::string totp_secret_text(const Bytes& secret) {
  char* text = nullptr;
  std::size_t size = 0;
  if (oath_base32_encode(reinterpret_cast<const char*>(secret.data()), secret.size(), &text, &size) !=
      OATH_OK)
    throw std::bad_alloc();
  const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
  return {text, size};
}

std::string totp_uri(const Bytes& secret, std::string_view account) {
  return std::string("otpauth://totp/") + kIssuer + ':' + escaped_for_uri(account) +
         "?secret=" + totp_secret_text(secret) + "&issuer=" + kIssuer;
}

std::optional<std::int64_t> accepted_totp_step(const Bytes& secret, std::string_view code, std::int64_t now,
                                               std::int64_t last_step) {
  Code typed{};
  const bool right_length = code.size() == kTotpDigits;
  if (right_length) code.copy(typed.data(), kTotpDigits);
  const std::int64_t present = now / kTotpStepSeconds;
  std::optional<std::int64_t> accepted;
  for (std::int64_t step = present - 1; step <= present + 1; ++step) {
    const Code expected = code_of_step(secret, step);
    const bool same = sodium_memcmp(expected.data(), typed.data(), kTotpDigits) == 0;
    if (same && right_length && step > last_step) accepted = step;
  }
  return accepted;
}

std::vector<std::string> new_backup_codes() {
  std::vector<std::string> codes;
  for (std::size_t i = 0; i < kBackupCodes; ++i) {
    std::string code;
    for (std::size_t position = 0; position < kCodeLength; ++position) {
      if (position == kCodeLength / 2) code += '-';
      code += kCodeAlphabet[randombytes_uniform(kCodeAlphabet.size())];
    }
    codes.push_back(std::move(code));
  }
  return codes;
}

Bytes backup_code_hash(std::int64_t person, std::string_view code) {
  std::string plain = std::to_string(person) + ':';
  for (const char c : code) {
    if (c == ' ' || c == '-') continue;
    plain += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return hash_secret(plain);
}

}  // namespace vlk::relay
