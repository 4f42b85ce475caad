// Random secrets, hashes of secrets, and password hashing.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Initialises libsodium. Must be called once before any other function here. Throws std::runtime_error if it
// fails.
void start_sodium();

// Returns `bytes` random bytes as base64url without padding.
[[nodiscard]] std::string random_token(std::size_t bytes);

[[nodiscard]] std::uint32_t random_number();

// A random password of 100 bits: 20 letters and digits in four groups, without characters that look alike.
[[nodiscard]] std::string random_password();

// The 32-byte hash that the database stores instead of a random secret. A secret of 256 random bits needs
// neither a salt nor a slow hash; passwords need both, see hash_password.
[[nodiscard]] Bytes hash_secret(std::string_view secret);

// Compares two hashes in constant time.
[[nodiscard]] bool same_hash(const Bytes& a, const Bytes& b);

// The bytes as lower-case hexadecimal digits, and back. Invalid digits give an empty result.
[[nodiscard]] std::string to_hex(std::span<const std::uint8_t> bytes);
[[nodiscard]] Bytes from_hex(std::string_view digits);

// Limits for the length of a password in bytes. The upper limit bounds the time that hashing takes.
inline constexpr std::size_t kShortestPassword = 10;
inline constexpr std::size_t kLongestPassword = 1024;
// Says what is wrong with a new password, as the rest of a sentence that begins with "a password". Empty if
// the password is valid.
[[nodiscard]] std::string password_fault(const std::string& password);

// Hash and verify passwords with argon2id at libsodium's interactive cost. Each call takes about 64 MiB and
// 0.1 s, so it must not run on the event loop.
// hash_password throws std::runtime_error when memory is short.
[[nodiscard]] std::string hash_password(const std::string& password);
[[nodiscard]] bool verify_password(const std::string& hash, const std::string& password);

}  // namespace vlk::relay
