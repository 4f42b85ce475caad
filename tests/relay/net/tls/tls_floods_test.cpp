// What a TLS stream does with many small messages of the TLS protocol from a peer that reads no answers.
#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>

#include "relay/net/tls/tls_pair.h"

namespace vlk::relay {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::size_t kFlood = 400'000;  // bytes
// Types of records.
constexpr std::uint8_t kHandshake = 22;
constexpr std::uint8_t kBytes = 23;

// The client's records of TLS 1.2 with AES-128-GCM, which OpenSSL's own functions would not send.
class Records {
 public:
  explicit Records(const SSL* client) {
    Bytes secret(48), seed(13 + 64);
    SSL_SESSION_get_master_key(SSL_get_session(client), secret.data(), secret.size());
    std::ranges::copy(std::string("key expansion"), seed.begin());
    SSL_get_server_random(client, &seed[13], 32);
    SSL_get_client_random(client, &seed[13 + 32], 32);
    EVP_KDF* const kdf = EVP_KDF_fetch(nullptr, "TLS1-PRF", nullptr);
    EVP_KDF_CTX* const derivation = EVP_KDF_CTX_new(kdf);
    char digest[] = "SHA256";
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SECRET, secret.data(), secret.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SEED, seed.data(), seed.size()),
        OSSL_PARAM_construct_end()};
    EVP_KDF_derive(derivation, keys_.data(), keys_.size(), parameters);
    EVP_KDF_CTX_free(derivation);
    EVP_KDF_free(kdf);
  }

  std::string next(std::uint8_t type, const Bytes& content) {
    ++number_;  // the client's last message of the handshake has number 0
    Bytes count(8);
    for (std::size_t i = 0; i < 8; ++i)
      count[i] = static_cast<std::uint8_t>(number_ >> (8 * (7 - i)));
    Bytes nonce(&keys_[32], &keys_[36]), known(count);
    nonce.insert(nonce.end(), count.begin(), count.end());
    known.insert(known.end(), {type, 3, 3, 0, static_cast<std::uint8_t>(content.size())});
    Bytes hidden(content.size() + 16);
    int size = 0;
    EVP_CIPHER_CTX* const cipher = EVP_CIPHER_CTX_new();
    EVP_EncryptInit_ex(cipher, EVP_aes_128_gcm(), nullptr, keys_.data(), nonce.data());
    EVP_EncryptUpdate(cipher, nullptr, &size, known.data(), static_cast<int>(known.size()));
    EVP_EncryptUpdate(cipher, hidden.data(), &size, content.data(), static_cast<int>(content.size()));
    EVP_EncryptFinal_ex(cipher, hidden.data() + size, &size);
    EVP_CIPHER_CTX_ctrl(cipher, EVP_CTRL_AEAD_GET_TAG, 16, &hidden[content.size()]);
    EVP_CIPHER_CTX_free(cipher);
    std::string record{static_cast<char>(type), 3, 3, 0, static_cast<char>(count.size() + hidden.size())};
    record.append(count.begin(), count.end()).append(hidden.begin(), hidden.end());
    return record;
  }

 private:
  std::array<std::uint8_t, 40> keys_{};  // the client's key, the server's, and the starts of their nonces
  std::uint64_t number_ = 0;
};

// Of a client that reads nothing.
class TlsFloodsTest : public TlsPair {
 protected:
  explicit TlsFloodsTest(int version) : TlsPair(version) {
    stream_->socket().set_option(boost::asio::socket_base::receive_buffer_size(2 * kFlood));
  }
  void read_on() {
    stream_->async_read_some(boost::asio::buffer(read_), [this](TlsStream::Error error, std::size_t) {
      error_ = error;
      if (!error) read_on();
    });
  }
  // Reads, and returns how much of what has arrived is left in the system when the stream goes on no more.
  std::size_t left() {
    read_on();
    std::size_t left = 0;
    do {
      left = stream_->socket().available();
      for (int i = 0; i < 10; ++i)
        go_on();
    } while (stream_->socket().available() < left);
    EXPECT_FALSE(error_) << error_.message();
    stream_->close();
    go_on();
    return left;
  }

  std::array<char, 1024> read_{};
  TlsStream::Error error_{};  // of the last read
};

class TlsFloodsOldTest : public TlsFloodsTest {
 protected:
  TlsFloodsOldTest() : TlsFloodsTest(TLS1_2_VERSION) {}
};
class TlsFloodsNewTest : public TlsFloodsTest {
 protected:
  TlsFloodsNewTest() : TlsFloodsTest(TLS1_3_VERSION) {}
};

TEST_F(TlsFloodsOldTest, BeginningsOfHandshakesAreNotReadWhileTheirAnswersWait) {
  ASSERT_STREQ(SSL_get_cipher(client_.get()), "ECDHE-ECDSA-AES128-GCM-SHA256");
  Records records(client_.get());
  std::size_t sent = 0;
  while (sent < kFlood) {
    const std::string record = records.next(kHandshake, {1, 0, 0, 0});
    sent += socket_.send(boost::asio::buffer(record));
  }
  EXPECT_GT(left(), kFlood / 2);
}

// Each read ends with bytes for the relay, and leaves an answer that waits.
TEST_F(TlsFloodsOldTest, BytesBetweenBeginningsOfHandshakesAreNotReadWhileTheAnswersWait) {
  Records records(client_.get());
  for (std::size_t sent = 0; sent < kFlood;) {
    std::string both = records.next(kHandshake, {1, 0, 0, 0});
    both += records.next(kBytes, {'x'});
    sent += socket_.send(boost::asio::buffer(both));
  }
  EXPECT_GT(left(), kFlood / 2);
}

TEST_F(TlsFloodsNewTest, ChangesOfTheKeyAreNotReadWhileTheirAnswersWait) {
  for (std::size_t sent = 0; sent < kFlood; sent += 27) {
    SSL_key_update(client_.get(), SSL_KEY_UPDATE_REQUESTED);
    ASSERT_EQ(SSL_do_handshake(client_.get()), 1);
  }
  EXPECT_GT(left(), kFlood / 2);
}

}  // namespace
}  // namespace vlk::relay
