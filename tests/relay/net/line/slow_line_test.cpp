// Bytes on their way through the proxy that simulates a slow line.
#include "relay/net/line/slow_line.h"

#include <poll.h>

#include <optional>
#include <string>
#include <thread>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/write.hpp>
#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kFarTooMuch = 200 * 1024;  // bytes

class SlowLineTest : public testing::Test {
 protected:
  // Connects a client and a server through a line with these rules.
  void connect(const LineRules& rules) {
    line_.emplace(listener_.local_endpoint().port(), rules);
    client_.connect({asio::ip::address_v4::loopback(), line_->port()});
    listener_.accept(server_);
  }
  static std::string read(tcp::socket& socket, std::size_t count) {
    std::string bytes(count, '\0');
    asio::read(socket, asio::buffer(bytes));
    return bytes;
  }
  // Sends up to kFarTooMuch bytes until the line has accepted none for a while. Returns the number accepted.
  std::size_t send_until_held_back() {
    constexpr int kPatience = 300;  // ms
    // Leaves only the proxy's own buffers.
    client_.set_option(asio::socket_base::send_buffer_size(4096));
    client_.non_blocking(true);
    const std::string bytes = numbers(1000);
    std::size_t sent = 0;
    boost::system::error_code error;
    pollfd writable{client_.native_handle(), POLLOUT, 0};
    while (sent<kFarTooMuch&& ::poll(&writable, 1, kPatience)> 0)
      sent += client_.write_some(asio::buffer(bytes), error);
    return sent;
  }
  static std::string numbers(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t i = 0; i < count; ++i)
      bytes[i] = static_cast<char>(i * 7 + i / 256);
    return bytes;
  }

  asio::io_context io_;
  tcp::acceptor listener_{io_, {asio::ip::address_v4::loopback(), 0}};
  tcp::socket client_{io_};
  tcp::socket server_{io_};
  std::optional<SlowLine> line_;
};

TEST_F(SlowLineTest, BytesArriveUnchangedAndInOrderInBothDirections) {
  connect({.bits_per_second = 40e6, .delay = milliseconds(2), .loss = 0.05});
  const std::string up = numbers(200'000), down = numbers(100'001);
  std::thread sender([&] {
    asio::write(client_, asio::buffer(up));
    asio::write(server_, asio::buffer(down));
  });
  EXPECT_TRUE(read(server_, up.size()) == up);
  EXPECT_TRUE(read(client_, down.size()) == down);
  sender.join();
}

TEST_F(SlowLineTest, BytesTakeAtLeastTheLinesTime) {
  connect({.bits_per_second = 1e6, .delay = milliseconds(100)});
  const auto start = Clock::now();
  const std::string bytes = numbers(25'000);
  asio::write(client_, asio::buffer(bytes));
  EXPECT_TRUE(read(server_, bytes.size()) == bytes);
  EXPECT_GE(Clock::now() - start, milliseconds(300));
}

TEST_F(SlowLineTest, SenderIsHeldBackWhenTheQueueAndTheBuffersAreFull) {
  connect({.bits_per_second = 1000, .queue = 8000});
  EXPECT_LT(send_until_held_back(), kFarTooMuch);
}

TEST_F(SlowLineTest, SenderIsHeldBackInAnOutage) {
  const auto begin = Clock::now() + milliseconds(200);
  // Before the outage, the line carries 25,000 bytes at most.
  connect({.bits_per_second = 1e6, .outage = Outage{begin, begin + std::chrono::hours(1)}});
  EXPECT_LT(send_until_held_back(), kFarTooMuch);
}

TEST_F(SlowLineTest, NothingPassesInAnOutageAndConnectionsStayOpen) {
  const auto begin = Clock::now() + milliseconds(200);
  const Outage outage{begin, begin + milliseconds(500)};
  connect({.outage = outage});
  // Bytes arrive at once until the outage begins.
  while (Clock::now() < outage.begin) {
    asio::write(server_, asio::buffer("b", 1));
    EXPECT_EQ(read(client_, 1), "b");
  }
  asio::write(client_, asio::buffer("c", 1));
  EXPECT_EQ(read(server_, 1), "c");
  EXPECT_GE(Clock::now(), outage.end);
}

TEST_F(SlowLineTest, EndOfAConnectionArrivesAfterItsBytes) {
  connect({.bits_per_second = 1e6, .delay = milliseconds(20)});
  const std::string bytes = numbers(10'000);
  asio::write(client_, asio::buffer(bytes));
  client_.close();
  EXPECT_TRUE(read(server_, bytes.size()) == bytes);
  char more = 0;
  boost::system::error_code error;
  server_.read_some(asio::buffer(&more, 1), error);
  EXPECT_EQ(error, asio::error::eof);
}

TEST_F(SlowLineTest, ConnectionsShareTheLine) {
  connect({.bits_per_second = 1e6});
  tcp::socket second_client(io_), second_server(io_);
  second_client.connect({asio::ip::address_v4::loopback(), line_->port()});
  listener_.accept(second_server);
  const std::string bytes = numbers(12'500);
  const auto start = Clock::now();
  asio::write(client_, asio::buffer(bytes));
  asio::write(second_client, asio::buffer(bytes));
  EXPECT_TRUE(read(server_, bytes.size()) == bytes);
  EXPECT_TRUE(read(second_server, bytes.size()) == bytes);
  EXPECT_GE(Clock::now() - start, milliseconds(190));
}

}  // namespace
}  // namespace vlk::relay
