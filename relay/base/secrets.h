// Random secrets, their hashes, and passwords.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vlk::relay {

// Sets libsodium up; throws std::runtime_error when it cannot be. To be called before everything else here.
void start_sodium();

// `bytes` random bytes as base64url without padding.
std::string random_token(std::size_t bytes);

// A random 32-bit number.
std::uint32_t random_number();

// A password of 20 letters and digits in four groups: 100 bits, without look-alikes.
std::string random_password();

// The 32-byte hash under which a random secret is stored. A secret of 256 random bits needs neither salt nor
// work factor; passwords do and go through hash_password.
std::vector<std::uint8_t> hash_secret(std::string_view secret);

// Compares two hashes in a time that does not depend on where they differ.
bool same_hash(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

// In bytes. The longest is more than anybody types and less than would keep the relay busy.
inline constexpr std::size_t kShortestPassword = 10;
inline constexpr std::size_t kLongestPassword = 1024;
// What is wrong with a new password, to follow its subject in a sentence; empty if nothing.
std::string password_fault(const std::string& password);

// argon2id with libsodium's interactive cost: some 64 MiB and a tenth of a second, so not for the event loop.
// Throws std::runtime_error when the memory is not to be had.
std::string hash_password(const std::string& password);
bool verify_password(const std::string& hash, const std::string& password);

}  // namespace vlk::relay
