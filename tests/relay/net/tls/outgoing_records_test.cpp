// The bytes of one connection that wait for the system.
#include "relay/net/tls/outgoing_records.h"

#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "relay/net/tls/handles.h"

namespace vlk::relay {
namespace {

class OutgoingRecordsTest : public testing::Test {
 protected:
  OutgoingRecordsTest() { ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0, sockets_.data()); }
  ~OutgoingRecordsTest() override {
    for (const int socket : sockets_)
      ::close(socket);
  }

  void write(const std::string& bytes) {
    EXPECT_EQ(BIO_write(bio_.get(), bytes.data(), static_cast<int>(bytes.size())),
              static_cast<int>(bytes.size()));
  }
  // What has arrived, of so many bytes at most.
  std::string read(std::size_t most = 1 << 20) {
    std::string bytes(most, '\0');
    const ssize_t count = ::recv(sockets_[1], bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
  }
  // Numbers in their order, of at least so many bytes.
  std::string numbers(std::size_t size) {
    std::string bytes;
    while (bytes.size() < size)
      bytes += std::to_string(++number_) + ' ';
    return bytes;
  }

  std::array<int, 2> sockets_{-1, -1};
  OutgoingRecords records_;
  Bio bio_{records_.make_bio()};
  std::size_t number_ = 0;
};

TEST_F(OutgoingRecordsTest, RecordsGoToTheSystemInOneCallAndLeaveNoMemory) {
  write("one");
  write("two");
  EXPECT_FALSE(records_.empty());
  EXPECT_EQ(read(), "");
  EXPECT_EQ(records_.send(sockets_[0]), 0);
  EXPECT_TRUE(records_.empty());
  EXPECT_EQ(records_.memory(), 0u);
  EXPECT_EQ(read(), "onetwo");
}

TEST_F(OutgoingRecordsTest, EachByteArrivesOnceWhateverTheSystemTakesAtOnce) {
  std::string sent, arrived;
  for (int i = 0; i < 200; ++i) {
    const std::string more = numbers(20'000);
    write(more);
    sent += more;
    EXPECT_EQ(records_.send(sockets_[0]), 0);
    arrived += read(i % 2 == 0 ? 30'000 : 5'000);
  }
  while (arrived.size() < sent.size()) {
    EXPECT_EQ(records_.send(sockets_[0]), 0);
    const std::string more = read();
    ASSERT_FALSE(more.empty());
    arrived += more;
  }
  EXPECT_TRUE(arrived == sent);
  EXPECT_EQ(records_.sent(), sent.size());
  EXPECT_EQ(records_.memory(), 0u);
}

TEST_F(OutgoingRecordsTest, RestThatNeverEndsKeepsOnlyWhatWaits) {
  write(std::string(1 << 20, 'x'));
  for (std::size_t arrived = 0; arrived < (16 << 20);) {
    EXPECT_EQ(records_.send(sockets_[0]), 0);
    const std::string bytes = read();
    ASSERT_FALSE(bytes.empty());
    arrived += bytes.size();
    write(bytes);
    ASSERT_FALSE(records_.empty());
  }
  EXPECT_LT(records_.memory(), std::size_t{8} << 20);
}

TEST_F(OutgoingRecordsTest, ConnectionsDoNotMixTheirBytes) {
  const std::string much = numbers(1 << 20);
  write(much);
  EXPECT_EQ(records_.send(sockets_[0]), 0);
  EXPECT_FALSE(records_.empty());
  OutgoingRecords other;
  const Bio bio(other.make_bio());
  EXPECT_EQ(BIO_write(bio.get(), "other", 5), 5);
  write("end");
  std::string arrived;
  while (!records_.empty()) {
    EXPECT_EQ(records_.send(sockets_[0]), 0);
    arrived += read();
  }
  for (std::string more; !(more = read()).empty();)
    arrived += more;
  EXPECT_TRUE(arrived == much + "end");
  EXPECT_EQ(other.send(sockets_[0]), 0);
  EXPECT_EQ(read(), "other");
}

TEST_F(OutgoingRecordsTest, BytesThatAnotherConnectionHasReplacedAreAFailure) {
  write("lost");
  OutgoingRecords other;
  const Bio bio(other.make_bio());
  EXPECT_EQ(BIO_write(bio.get(), "other", 5), 5);
  EXPECT_EQ(records_.send(sockets_[0]), ECONNABORTED);
  EXPECT_EQ(other.send(sockets_[0]), 0);
  EXPECT_EQ(read(), "other");
}

TEST_F(OutgoingRecordsTest, BytesForAPeerThatIsGoneAreDropped) {
  write(std::string(1 << 20, 'x'));
  EXPECT_EQ(records_.send(sockets_[0]), 0);
  ::shutdown(sockets_[1], SHUT_RDWR);
  EXPECT_EQ(records_.send(sockets_[0]), EPIPE);
  EXPECT_TRUE(records_.empty());
  EXPECT_EQ(records_.memory(), 0u);
  EXPECT_EQ(records_.problem(), EPIPE);
  EXPECT_EQ(records_.send(sockets_[0]), EPIPE) << "what was dropped does not count as sent";
}

}  // namespace
}  // namespace vlk::relay
