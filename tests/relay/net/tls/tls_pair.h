// A TlsStream and its client on one thread, over a real TCP connection with small buffers.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include "relay/net/tcp/tcp_progress.h"
#include "relay/net/tls/tls_stream.h"
#include "support/certificates.h"

namespace vlk::relay {

class TlsPair : public testing::Test {
 protected:
  using tcp = boost::asio::ip::tcp;

  // `version` is the newest one of TLS that the client speaks; with TLS 1.2, it uses AES-128-GCM.
  explicit TlsPair(int version = TLS1_3_VERSION) {
    SSL_set_max_proto_version(client_.get(), version);
    SSL_set_cipher_list(client_.get(), "ECDHE-ECDSA-AES128-GCM-SHA256");
    const auto identity = vantelink_test::TestAuthority::issue_self_signed({"localhost"});
    SSL_CTX_use_certificate(server_context_.get(), identity.certificate.get());
    SSL_CTX_use_PrivateKey(server_context_.get(), identity.key.get());
    SSL_CTX_set_mode(server_context_.get(), SSL_MODE_RELEASE_BUFFERS | SSL_MODE_ENABLE_PARTIAL_WRITE |
                                                SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_read_ahead(server_context_.get(), 1);
    SSL_CTX_set_options(server_context_.get(), SSL_OP_NO_RENEGOTIATION);
    tcp::acceptor acceptor(io_, {boost::asio::ip::address_v4::loopback(), 0});
    socket_.open(tcp::v4());
    socket_.set_option(boost::asio::socket_base::receive_buffer_size(4096));
    socket_.connect(acceptor.local_endpoint());
    socket_.native_non_blocking(true);
    tcp::socket accepted = acceptor.accept();
    accepted.set_option(boost::asio::socket_base::send_buffer_size(4096));
    limit_unsent(accepted.native_handle(), 32 * 1024);
    stream_ = std::make_unique<TlsStream>(std::move(accepted), server_context_.get());
    SSL_set_fd(client_.get(), socket_.native_handle());
    bool done = false;
    stream_->async_handshake([&](TlsStream::Error error) { done = !error; });
    SSL_set_connect_state(client_.get());
    until([&] { return SSL_do_handshake(client_.get()) == 1 && done; });
  }

  // Lets the stream go on until the condition is true. Throws std::runtime_error after ten seconds.
  void until(const std::function<bool()>& condition) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > end) throw std::runtime_error("the peer has waited in vain");
      go_on();
    }
  }
  // Lets the stream do what it can do now.
  void go_on() {
    io_.restart();
    io_.poll();
  }
  // Reads what has arrived at the client, of one record at most.
  std::string read_some() {
    char bytes[16 * 1024];
    const int count = SSL_read(client_.get(), bytes, sizeof bytes);
    return count > 0 ? std::string(bytes, static_cast<std::size_t>(count)) : std::string();
  }
  std::string read(std::size_t size) {
    std::string all;
    until([&] {
      all += read_some();
      return all.size() >= size;
    });
    return all;
  }
  void write(const std::string& bytes) {
    until([&] { return SSL_write(client_.get(), bytes.data(), static_cast<int>(bytes.size())) > 0; });
  }

  boost::asio::io_context io_;
  tcp::socket socket_{io_};  // the client's
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> server_context_{SSL_CTX_new(TLS_server_method()),
                                                                          &SSL_CTX_free};
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> client_context_{SSL_CTX_new(TLS_client_method()),
                                                                          &SSL_CTX_free};
  const std::unique_ptr<SSL, decltype(&SSL_free)> client_{SSL_new(client_context_.get()), &SSL_free};
  std::unique_ptr<TlsStream> stream_;
};

}  // namespace vlk::relay
