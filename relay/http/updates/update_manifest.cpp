// Verifies and reads the signed manifest.
#include "relay/http/updates/update_manifest.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <stdexcept>

#include <nlohmann/json.hpp>
#include <openssl/pem.h>
#include <openssl/sha.h>
#include <sodium.h>

#include "relay/http/files.h"

namespace vlk::relay {
namespace {

// A text that only these manifests contain, so that a signature of something else does not verify one.
constexpr char kFormat[] = "vantelink-update-1";
constexpr std::size_t kMostFiles = 16;
constexpr std::size_t kLongestText = 128;  // of names and versions, in bytes
constexpr std::size_t kSignatureBytes = 64;

using Json = nlohmann::json;

[[noreturn]] void fail(const std::string& sentence) {
  throw std::runtime_error(sentence);
}

std::string decoded(std::string_view base64) {
  std::array<unsigned char, kSignatureBytes> bytes{};
  std::size_t size = 0;
  if (sodium_base642bin(bytes.data(), bytes.size(), base64.data(), base64.size(), "\r\n", &size, nullptr,
                        sodium_base64_VARIANT_ORIGINAL) != 0)
    return {};
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
}

std::string text_of(const Json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return {};
  const auto text = found->get<std::string>();
  return text.size() <= kLongestText ? text : std::string();
}

bool is_hash(const std::string& text) {
  const auto digit = [](char c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); };
  return text.size() == 2 * SHA256_DIGEST_LENGTH && std::ranges::all_of(text, digit);
}

UpdateFile file_of(const Json& entry) {
  if (!entry.is_object()) fail("the signed manifest has an entry that is not a file");
  const auto bytes = entry.find("bytes");
  UpdateFile file{text_of(entry, "name"), 0, text_of(entry, "sha256")};
  if (!plain_name(file.name) || !is_hash(file.sha256) || bytes == entry.end() || !bytes->is_number_unsigned())
    fail("the signed manifest has a file without a name, size or hash");
  file.bytes = bytes->get<std::uint64_t>();
  return file;
}

}  // namespace

UpdateKey::UpdateKey(const std::string& file) : key_(nullptr, &EVP_PKEY_free) {
  const std::unique_ptr<std::FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "re"),
                                                                  &std::fclose);
  if (!stream) fail("cannot read the update key " + file + "; check --update-key");
  key_.reset(PEM_read_PUBKEY(stream.get(), nullptr, nullptr, nullptr));
  if (!key_ || EVP_PKEY_get_base_id(key_.get()) != EVP_PKEY_ED25519)
    fail(file + " is not a public Ed25519 key; packaging/make-update-key makes one");
}

bool UpdateKey::verifies(std::string_view text, std::string_view signature) const {
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  const auto bytes = [](std::string_view of) { return reinterpret_cast<const unsigned char*>(of.data()); };
  return context && EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key_.get()) == 1 &&
         EVP_DigestVerify(context.get(), bytes(signature), signature.size(), bytes(text), text.size()) == 1;
}

const UpdateFile* UpdateManifest::find(std::string_view name) const {
  const auto found = std::ranges::find(files, name, &UpdateFile::name);
  return found == files.end() ? nullptr : &*found;
}

UpdateManifest read_manifest(std::string_view text, const UpdateKey& key) {
  const std::size_t end = text.find('\n');
  if (end == std::string_view::npos) fail("the signed manifest has no signature");
  const std::string_view line = text.substr(0, end);
  if (!key.verifies(line, decoded(text.substr(end + 1))))
    fail("the signature of the manifest is not made with the update key");
  const Json content = Json::parse(line, nullptr, false);
  if (!content.is_object() || text_of(content, "format") != kFormat)
    fail("the signed manifest is not one of this relay's format");
  UpdateManifest manifest{text_of(content, "version"), {}};
  const auto files = content.find("files");
  if (manifest.version.empty() || files == content.end() || !files->is_array() || files->size() > kMostFiles)
    fail("the signed manifest has no version or no list of files");
  std::uint64_t total = 0;
  for (const Json& entry : *files) {
    UpdateFile file = file_of(entry);
    if (file.bytes > kMostUpdateBytes - total) fail("the signed manifest's files are too large");
    total += file.bytes;
    manifest.files.push_back(std::move(file));
  }
  return manifest;
}

const UpdateFile& installer_of(const UpdateManifest& manifest, const std::string& version_json) {
  const Json content = Json::parse(version_json, nullptr, false);
  if (!content.is_object() || text_of(content, "agent_version") != manifest.version)
    fail("version.json does not name the version of the signed manifest");
  const UpdateFile* installer = manifest.find(text_of(content, "agent_file"));
  if (!installer) fail("version.json names an installer that is not in the signed manifest");
  return *installer;
}

std::string sha256_text(std::string_view bytes) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> hash{};
  SHA256(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), hash.data());
  std::array<char, 2 * SHA256_DIGEST_LENGTH + 1> text{};
  sodium_bin2hex(text.data(), text.size(), hash.data(), hash.size());
  return text.data();
}

}  // namespace vlk::relay
