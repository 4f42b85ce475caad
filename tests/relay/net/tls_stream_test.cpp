// A TLS stream whose sending was ended while operations wait, over a real TCP connection.
#include "relay/net/tls/tls_stream.h"

#include <array>
#include <memory>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using Error = TlsStream::Error;

class TlsStreamTest : public testing::Test {
 protected:
  TlsStreamTest() {
    tcp::acceptor acceptor(io_, {asio::ip::address_v4::loopback(), 0});
    peer_.connect(acceptor.local_endpoint());
    stream_ = std::make_unique<TlsStream>(acceptor.accept(), context_.get());
  }
  void run() {
    io_.restart();
    io_.run();
  }

  asio::io_context io_;
  const std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context_{SSL_CTX_new(TLS_server_method()),
                                                                   &SSL_CTX_free};
  tcp::socket peer_{io_};
  std::unique_ptr<TlsStream> stream_;
};

TEST_F(TlsStreamTest, EveryOperationFailsAfterTheEndOfTheSending) {
  stream_->finish();
  std::array<char, 16> bytes{};
  std::vector<Error> errors;
  stream_->async_handshake([&](Error error) { errors.push_back(error); });
  stream_->async_read_some(asio::buffer(bytes), [&](Error error, std::size_t) { errors.push_back(error); });
  stream_->async_write_some(asio::buffer(bytes), [&](Error error, std::size_t) { errors.push_back(error); });
  run();
  EXPECT_EQ(errors, std::vector<Error>(3, asio::error::operation_aborted));
  Error end;
  EXPECT_EQ(peer_.read_some(asio::buffer(bytes), end), 0u);
  EXPECT_EQ(end, asio::error::eof);
  stream_->finish();
}

TEST_F(TlsStreamTest, ReadingThatWaitsFailsWhenBytesArriveAfterTheEndOfTheSending) {
  std::array<char, 16> bytes{};
  Error error;
  stream_->async_read_some(asio::buffer(bytes), [&](Error result, std::size_t) { error = result; });
  io_.poll();
  stream_->finish();
  asio::write(peer_, asio::buffer("late", 4));
  run();
  EXPECT_EQ(error, asio::error::operation_aborted);
}

}  // namespace
}  // namespace vlk::relay
