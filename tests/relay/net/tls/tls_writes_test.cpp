// What a TLS stream does with bytes that the system does not take at once.
#include <array>
#include <optional>
#include <string>

#include <boost/asio/buffer.hpp>

#include "relay/net/tls/tls_pair.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using Error = TlsStream::Error;

// More than the buffers of both sockets.
std::string much() {
  std::string bytes;
  while (bytes.size() < 1'000'000)
    bytes += std::to_string(bytes.size()) + ' ';
  return bytes;
}

class TlsWritesTest : public TlsPair {
 protected:
  Error write_now(const std::string& bytes) {
    const asio::const_buffer buffer = asio::buffer(bytes);
    return stream_->write({&buffer, 1});
  }
  void wait_until_sent() {
    stream_->async_sent([this](Error error) { sent_ = error; });
  }
  void read_on() {
    got_.reset();
    stream_->async_read_some(asio::buffer(read_), [this](Error error, std::size_t count) {
      got_ = error ? error.message() : std::string(read_.data(), count);
    });
  }

  std::optional<Error> sent_;       // the result of wait_until_sent()
  std::optional<std::string> got_;  // the result of read_on()
  std::array<char, 1024> read_{};
};

TEST_F(TlsWritesTest, SmallBuffersArriveInOneRecord) {
  const std::string parts[] = {"head", "body", "next"};
  const std::array<asio::const_buffer, 3> buffers = {asio::buffer(parts[0]), asio::buffer(parts[1]),
                                                     asio::buffer(parts[2])};
  EXPECT_FALSE(stream_->write(buffers));
  EXPECT_TRUE(stream_->all_sent());
  std::string first;
  until([&] { return !(first = read_some()).empty(); });
  EXPECT_EQ(first, "headbodynext");
}

TEST_F(TlsWritesTest, BytesThatWaitArriveBeforeThoseOfALaterWrite) {
  const std::string bytes = much();
  EXPECT_FALSE(write_now(bytes));
  std::optional<std::size_t> written;
  stream_->async_write_some(asio::buffer("pong", 4),
                            [&](Error error, std::size_t count) { written = error ? 0 : count; });
  wait_until_sent();
  go_on();
  EXPECT_FALSE(stream_->all_sent());
  EXPECT_FALSE(sent_);
  EXPECT_FALSE(written);
  const std::string arrived = read(bytes.size() + 4);
  EXPECT_TRUE(arrived == bytes + "pong");
  until([&] { return sent_ && written; });
  EXPECT_EQ(*sent_, Error());
  EXPECT_EQ(*written, 4u);
  EXPECT_TRUE(stream_->all_sent());
}

TEST_F(TlsWritesTest, WriteOfABufferSequenceIsLimitedToOneRecord) {
  const std::string bytes(100'000, 'x');
  std::size_t written = 0;
  stream_->async_write_some(std::array{asio::buffer(bytes), asio::buffer(bytes)},
                            [&](Error, std::size_t count) { written = count; });
  EXPECT_EQ(read(16'384).size(), 16'384u);
  until([&] { return written > 0; });
  EXPECT_EQ(written, 16'384u);
}

TEST_F(TlsWritesTest, StreamReadsWhileBytesWait) {
  EXPECT_FALSE(write_now(much()));
  read_on();
  write("key");
  until([&] { return got_.has_value(); });
  EXPECT_EQ(*got_, "key");
  EXPECT_FALSE(stream_->all_sent());
}

TEST_F(TlsWritesTest, PeerThatReadsNothingIsNotReadFromWhileItWaitsForAnAnswer) {
  const std::string bytes = much();
  EXPECT_FALSE(write_now(bytes));
  for (const char* text : {"one", "two", "three"}) {
    SSL_key_update(client_.get(), SSL_KEY_UPDATE_REQUESTED);
    write(text);
  }
  std::string all;
  const auto collect = [&] {
    if (got_) all += *got_;
    if (got_) read_on();
    go_on();
  };
  read_on();
  for (int i = 0; i < 10; ++i)
    collect();
  wait_until_sent();
  std::string arrived = read(bytes.size() / 2);
  for (int i = 0; i < 10; ++i)
    collect();
  EXPECT_EQ(all.find("three"), std::string::npos) << "the answer waits behind what the peer has not read";
  arrived += read(bytes.size() - arrived.size());
  EXPECT_TRUE(arrived == bytes);
  until([&] {
    (void)read_some();
    collect();
    return all == "onetwothree";
  });
  stream_->close();
  go_on();
}

TEST_F(TlsWritesTest, BytesBehindChangesOfTheKeyAreReadAtOnce) {
  for (const int changes : {1, 2, 3}) {
    for (int i = 0; i < changes; ++i) {
      SSL_key_update(client_.get(), SSL_KEY_UPDATE_REQUESTED);
      ASSERT_EQ(SSL_do_handshake(client_.get()), 1);
    }
    write("text");
    read_on();
    until([&] { return got_.has_value(); });
    EXPECT_EQ(*got_, "text");
    EXPECT_TRUE(stream_->all_sent());
  }
}

TEST_F(TlsWritesTest, ReadingThatCannotAnswerEnds) {
  stream_->socket().shutdown(asio::socket_base::shutdown_send);
  // OpenSSL answers the first one when it gets the second one.
  for (int i = 0; i < 2; ++i) {
    SSL_key_update(client_.get(), SSL_KEY_UPDATE_REQUESTED);
    ASSERT_EQ(SSL_do_handshake(client_.get()), 1);
  }
  read_on();
  until([&] { return got_.has_value(); });
  EXPECT_EQ(*got_, Error(asio::error::broken_pipe).message());
}

TEST_F(TlsWritesTest, EndOfTheSendingEndsTheWaitForBytesThatWait) {
  EXPECT_FALSE(write_now(much()));
  wait_until_sent();
  go_on();
  stream_->finish();
  EXPECT_TRUE(stream_->all_sent());
  EXPECT_EQ(write_now("late"), asio::error::operation_aborted);
  until([&] {
    (void)read_some();
    return sent_.has_value();
  });
  EXPECT_EQ(*sent_, asio::error::operation_aborted);
}

TEST_F(TlsWritesTest, CloseEndsTheWaitForBytesThatWait) {
  EXPECT_FALSE(write_now(much()));
  wait_until_sent();
  go_on();
  stream_->close();
  until([&] { return sent_.has_value(); });
  EXPECT_EQ(*sent_, asio::error::operation_aborted);
}

TEST_F(TlsWritesTest, PeerThatIsGoneEndsTheWait) {
  EXPECT_FALSE(write_now(much()));
  wait_until_sent();
  socket_.set_option(asio::socket_base::linger(true, 0));
  socket_.close();
  until([&] { return sent_.has_value(); });
  EXPECT_TRUE(*sent_);
}

TEST_F(TlsWritesTest, OneTurnReadsABoundedNumberOfTimes) {
  for (int i = 0; i < 100; ++i)
    write("a");
  int inside = 0, most = 0, reads = 0, turns = 0;
  bool nested = false;
  std::function<void()> next = [&] {
    stream_->async_read_some(asio::buffer(read_), [&](Error, std::size_t) {
      nested = nested || inside > 0;
      ++inside;
      if (++reads < 100) next();
      --inside;
    });
  };
  next();
  while (reads < 100) {
    const int before = reads;
    io_.restart();
    io_.run_one();
    most = std::max(most, reads - before);
    ++turns;
  }
  EXPECT_FALSE(nested);
  EXPECT_GT(most, 8);
  EXPECT_LE(most, 33);
  EXPECT_LE(turns, 20);
}

}  // namespace
}  // namespace vlk::relay
