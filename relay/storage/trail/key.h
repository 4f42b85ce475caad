// The relay's key for the audit trail: Ed25519, in two PEM files of the data folder.
#pragma once

#include <string>
#include <string_view>

#include "relay/base/bytes.h"

namespace vlk::relay {

inline constexpr char kTrailKeyFile[] = "trail-key.pem";     // the private key, mode 0600
inline constexpr char kTrailPublicFile[] = "trail-key.pub";  // the public key

// Safe to be used by several threads.
class TrailKey {
 public:
  // Reads the key of this folder. If there is none, makes one. Throws std::runtime_error with a sentence,
  // also if others may read the file.
  [[nodiscard]] static TrailKey load_or_make(const std::string& folder);

  // The signature of the text, 64 bytes.
  [[nodiscard]] Bytes sign(std::string_view text) const;
  // The public key, 32 bytes.
  [[nodiscard]] const Bytes& public_part() const { return public_; }

 private:
  explicit TrailKey(const Bytes& seed);
  Bytes secret_;
  Bytes public_;
};

// Reads a public key from a PEM file. Throws std::runtime_error with a sentence.
[[nodiscard]] Bytes read_trail_public_key(const std::string& file);

// The same for the text of such a file; `name` is what the sentence calls it.
[[nodiscard]] Bytes parse_trail_public_key(const std::string& text, const std::string& name);

[[nodiscard]] bool signature_fits(const Bytes& public_key, std::string_view text, const Bytes& signature);

// A short form of the public key that people compare: the SHA-256 of its 32 bytes, in hexadecimal digits.
[[nodiscard]] std::string key_fingerprint(const Bytes& public_key);

}  // namespace vlk::relay
