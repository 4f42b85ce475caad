// Signs updates as packaging/sign-update does, with a key of its own.
#pragma once

#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include "relay/http/updates/update_manifest.h"

namespace vlk::relay {

class UpdateSigner {
 public:
  using File = std::pair<std::string, std::string>;  // name and content

  void write_public_key(const std::string& file) const {
    const std::unique_ptr<std::FILE, decltype(&std::fclose)> stream(std::fopen(file.c_str(), "w"),
                                                                    &std::fclose);
    if (!stream || PEM_write_PUBKEY(stream.get(), key_.get()) != 1)
      throw std::runtime_error("cannot write " + file);
  }
  // The line and its signature, as version.json.signed contains them.
  [[nodiscard]] std::string signed_line(const std::string& line) const {
    const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
    unsigned char signature[64];
    std::size_t size = sizeof signature;
    if (EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get()) != 1 ||
        EVP_DigestSign(context.get(), signature, &size, reinterpret_cast<const unsigned char*>(line.data()),
                       line.size()) != 1)
      throw std::runtime_error("cannot sign");
    unsigned char base64[89];
    EVP_EncodeBlock(base64, signature, sizeof signature);
    return line + '\n' + reinterpret_cast<const char*>(base64) + '\n';
  }
  [[nodiscard]] std::string signed_list(const std::string& version, const std::vector<File>& files) const {
    nlohmann::json list = {
        {"format", "vantelink-update-1"}, {"version", version}, {"files", nlohmann::json::array()}};
    for (const auto& [name, content] : files)
      list["files"].push_back({{"name", name}, {"bytes", content.size()}, {"sha256", sha256_text(content)}});
    return signed_line(list.dump());
  }

 private:
  const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key_{
      EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), &EVP_PKEY_free};
};

}  // namespace vlk::relay
