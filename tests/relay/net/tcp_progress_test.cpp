// The counter of confirmed bytes, on a connection whose peer reads and stops reading.
#include "relay/net/tcp/tcp_progress.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <vector>

#include <gtest/gtest.h>

#include "support/waiting.h"

namespace vlk::relay {
namespace {

// Both ends of a TCP connection. The receiver's buffer is small.
class Connection {
 public:
  Connection() {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    const auto generic = reinterpret_cast<sockaddr*>(&address);
    EXPECT_EQ(::bind(listener, generic, size), 0);
    EXPECT_EQ(::listen(listener, 1), 0);
    EXPECT_EQ(::getsockname(listener, generic, &size), 0);
    receiver_ = ::socket(AF_INET, SOCK_STREAM, 0);
    const int buffer = 4096;
    ::setsockopt(receiver_, SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
    EXPECT_EQ(::connect(receiver_, generic, size), 0);
    sender_ = ::accept4(listener, nullptr, nullptr, SOCK_NONBLOCK);
    ::close(listener);
  }
  ~Connection() {
    ::close(receiver_);
    ::close(sender_);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  [[nodiscard]] std::uint64_t confirmed() const { return tcp_progress(sender_).confirmed; }
  [[nodiscard]] bool unconfirmed() const { return tcp_progress(sender_).unconfirmed; }
  // Writes until the system accepts no more bytes.
  void fill() const {
    const std::vector<char> bytes(64 * 1024);
    while (::send(sender_, bytes.data(), bytes.size(), MSG_NOSIGNAL) > 0) {
    }
  }
  void read(std::size_t size) const {
    std::vector<char> bytes(size);
    EXPECT_EQ(::recv(receiver_, bytes.data(), size, MSG_WAITALL), static_cast<ssize_t>(size));
  }
  // Reads what has arrived.
  void drain() const {
    std::vector<char> bytes(64 * 1024);
    while (::recv(receiver_, bytes.data(), bytes.size(), MSG_DONTWAIT) > 0) {
    }
  }

 private:
  int receiver_ = -1;
  int sender_ = -1;
};

TEST(TcpProgress, ConfirmedBytesGrowInSmallStepsWhileTheSendBufferStaysFull) {
  const Connection connection;
  connection.fill();
  std::uint64_t before = connection.confirmed();
  for (int i = 0; i < 10; ++i) {
    connection.read(8192);
    ASSERT_TRUE(vantelink_test::eventually([&] { return connection.confirmed() > before; }));
    before = connection.confirmed();
  }
}

TEST(TcpProgress, BytesAreUnconfirmedUntilThePeersSystemHasThem) {
  const Connection connection;
  EXPECT_FALSE(connection.unconfirmed());
  connection.fill();
  EXPECT_TRUE(connection.unconfirmed());
  EXPECT_TRUE(vantelink_test::eventually([&] {
    connection.drain();
    return !connection.unconfirmed();
  }));
}

TEST(TcpProgress, DescriptorThatIsNotATcpSocketHasNoConfirmedBytes) {
  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  EXPECT_EQ(tcp_progress(ends[1]).confirmed, 0u);
  ::close(ends[0]);
  ::close(ends[1]);
  EXPECT_EQ(tcp_progress(-1).confirmed, 0u);
}

}  // namespace
}  // namespace vlk::relay
