// The signed manifest of the updates for agents: which files may be offered, by their hashes.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <openssl/evp.h>

namespace vlk::relay {

// The public Ed25519 key that verifies manifests.
class UpdateKey {
 public:
  // Reads a PEM file. Throws std::runtime_error with a sentence for the operator.
  explicit UpdateKey(const std::string& file);

  [[nodiscard]] bool verifies(std::string_view text, std::string_view signature) const;

 private:
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_;
};

struct UpdateFile {
  std::string name;
  std::uint64_t bytes = 0;
  std::string sha256;  // lower-case hexadecimal digits
};

struct UpdateManifest {
  std::string version;
  std::vector<UpdateFile> files;

  [[nodiscard]] const UpdateFile* find(std::string_view name) const;
};

// The largest number of bytes of all files of a manifest. They are held in memory.
inline constexpr std::uint64_t kMostUpdateBytes = 128u << 20;

// Reads a signed manifest: one line of JSON, and one with its signature as base64. Throws std::runtime_error
// with a sentence for the operator if the signature or the content is wrong.
[[nodiscard]] UpdateManifest read_manifest(std::string_view text, const UpdateKey& key);

// Checks that version.json, which agents read, names the manifest's version and one of its files, and returns
// this file. Throws std::runtime_error with a sentence for the operator.
[[nodiscard]] const UpdateFile& installer_of(const UpdateManifest& manifest, const std::string& version_json);

// The SHA-256 hash of the bytes as lower-case hexadecimal digits.
[[nodiscard]] std::string sha256_text(std::string_view bytes);

}  // namespace vlk::relay
