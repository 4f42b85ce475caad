// Makes and reads the audit trail's key, and signs with it.
#include "relay/storage/trail/key.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sodium.h>

#include "relay/base/secrets.h"

namespace vlk::relay {
namespace {

struct FreeKey {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct FreeBio {
  void operator()(BIO* bio) const { BIO_free_all(bio); }
};
using Key = std::unique_ptr<EVP_PKEY, FreeKey>;
using Bio = std::unique_ptr<BIO, FreeBio>;

// Reads or writes the 32 bytes of a private or public key.
using RawBytes = int (*)(const EVP_PKEY*, unsigned char*, std::size_t*);
constexpr std::size_t kKeySize = 32;

[[noreturn]] void fail(const std::string& what, const std::string& file) {
  throw std::runtime_error(what + ' ' + file + ": " + std::strerror(errno));
}

std::string read_text(const std::string& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) fail("cannot read the trail's key", file);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

Bytes raw_key(const Key& key, RawBytes read, const std::string& file) {
  Bytes raw(kKeySize);
  std::size_t size = raw.size();
  if (!key || EVP_PKEY_id(key.get()) != EVP_PKEY_ED25519 || read(key.get(), raw.data(), &size) != 1)
    throw std::runtime_error("the file " + file + " is not an Ed25519 key in PEM form");
  return raw;
}

std::string pem_of(const Bytes& raw, bool secret) {
  const Key key(secret ? EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, raw.data(), raw.size())
                       : EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, raw.data(), raw.size()));
  const Bio bio(BIO_new(BIO_s_mem()));
  const bool good =
      key && bio &&
      (secret ? PEM_write_bio_PrivateKey(bio.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr)
              : PEM_write_bio_PUBKEY(bio.get(), key.get())) == 1;
  char* text = nullptr;
  const long size = good ? BIO_get_mem_data(bio.get(), &text) : 0;
  if (size <= 0) throw std::runtime_error("the trail's key could not be made");
  return {text, static_cast<std::size_t>(size)};
}

void write_all(int descriptor, const std::string& text, const std::string& file) {
  std::size_t done = 0;
  while (done < text.size()) {
    const ssize_t size = ::write(descriptor, text.data() + done, text.size() - done);
    if (size < 0) fail("cannot write", file);
    done += static_cast<std::size_t>(size);
  }
  if (::fsync(descriptor) != 0) fail("cannot write", file);
}

// Writes the file under a temporary name first, so that a crash leaves either the whole file or none.
void write_durably(const std::string& folder, const std::string& file, const std::string& text, mode_t mode) {
  const std::string temporary = file + ".new";
  ::unlink(temporary.c_str());
  const int descriptor = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
  if (descriptor < 0) fail("cannot create", temporary);
  try {
    write_all(descriptor, text, temporary);
  } catch (...) {
    ::close(descriptor);
    throw;
  }
  ::close(descriptor);
  if (::rename(temporary.c_str(), file.c_str()) != 0) fail("cannot create", file);
  const int directory = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory >= 0) {
    ::fsync(directory);
    ::close(directory);
  }
}

void require_private(const std::string& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0) fail("cannot read", file);
  if ((status.st_mode & 077) != 0)
    throw std::runtime_error("others may read the trail's key " + file + "; run: chmod 600 " + file);
}

}  // namespace

TrailKey::TrailKey(const Bytes& seed)
    : secret_(crypto_sign_SECRETKEYBYTES), public_(crypto_sign_PUBLICKEYBYTES) {
  crypto_sign_seed_keypair(public_.data(), secret_.data(), seed.data());
}

TrailKey TrailKey::load_or_make(const std::string& folder) {
  const std::string file = folder + '/' + kTrailKeyFile;
  const std::string public_file = folder + '/' + kTrailPublicFile;
  if (!std::filesystem::exists(file)) {
    Bytes seed(crypto_sign_SEEDBYTES);
    randombytes_buf(seed.data(), seed.size());
    write_durably(folder, file, pem_of(seed, true), 0600);
    std::filesystem::remove(public_file);
  }
  require_private(file);
  const std::string text = read_text(file);
  const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr));
  TrailKey result(raw_key(key, EVP_PKEY_get_raw_private_key, file));
  if (!std::filesystem::exists(public_file))
    write_durably(folder, public_file, pem_of(result.public_, false), 0644);
  return result;
}

Bytes TrailKey::sign(std::string_view text) const {
  Bytes signature(crypto_sign_BYTES);
  crypto_sign_detached(signature.data(), nullptr, reinterpret_cast<const unsigned char*>(text.data()),
                       text.size(), secret_.data());
  return signature;
}

Bytes read_trail_public_key(const std::string& file) {
  return parse_trail_public_key(read_text(file), file);
}

Bytes parse_trail_public_key(const std::string& text, const std::string& name) {
  const Bio bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
  const Key key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
  return raw_key(key, EVP_PKEY_get_raw_public_key, name);
}

bool signature_fits(const Bytes& public_key, std::string_view text, const Bytes& signature) {
  return public_key.size() == crypto_sign_PUBLICKEYBYTES && signature.size() == crypto_sign_BYTES &&
         crypto_sign_verify_detached(signature.data(), reinterpret_cast<const unsigned char*>(text.data()),
                                     text.size(), public_key.data()) == 0;
}

std::string key_fingerprint(const Bytes& public_key) {
  Bytes hash(crypto_hash_sha256_BYTES);
  crypto_hash_sha256(hash.data(), public_key.data(), public_key.size());
  return to_hex(hash);
}

}  // namespace vlk::relay
