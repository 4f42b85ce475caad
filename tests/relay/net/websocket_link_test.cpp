// What a WebSocketLink takes from its channel's queue, and in which order it arrives at the peer.
#include "relay/net/websocket_link.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <string>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/post.hpp>

#include "relay/net/tcp/tcp_progress.h"
#include "relay/net/tls/tls_pair.h"
#include "wire/websocket.h"

namespace vlk::relay {
namespace {

namespace http = boost::beast::http;

constexpr std::size_t kPart = 16'000;
constexpr std::size_t kMessage = 64 * 1024;
constexpr std::size_t kMessages = 40;

class WebSocketLinkTest : public TlsPair {
 protected:
  explicit WebSocketLinkTest(Channel::Division division = {true, kPart}) {
    http::request<http::string_body> request(http::verb::get, "/console", 11);
    request.set(http::field::host, "localhost");
    request.set(http::field::upgrade, "websocket");
    request.set(http::field::connection, "Upgrade");
    request.set(http::field::sec_websocket_key, "AAAAAAAAAAAAAAAAAAAAAA==");
    request.set(http::field::sec_websocket_version, "13");
    boost::asio::co_spawn(io_, accept(std::move(request), division), boost::asio::detached);
    std::string answer;
    until([&] {
      answer += read_some();
      return link_ && answer.ends_with("\r\n\r\n");
    });
    boost::asio::co_spawn(io_, read_all(), boost::asio::detached);
  }
  ~WebSocketLinkTest() override {
    link_->channel()->cut("the test has ended");
    go_on();
  }

  boost::asio::awaitable<void> accept(http::request<http::string_body> request, Channel::Division division) {
    WebSocketLink::Settings settings{"test", 1 << 20, division, std::chrono::seconds(10)};
    std::string problem;
    auto stream = *stream_;
    link_ = co_await WebSocketLink::accept(stream, std::move(request), std::move(settings), problem);
  }
  boost::asio::awaitable<void> read_all() {
    while (const auto incoming = co_await link_->read())
      arrived_.emplace_back(incoming->bytes.begin(), incoming->bytes.end());
    ended_ = true;
  }

  void send_frame(std::uint8_t opcode, const std::string& content) {
    const auto frame =
        encode_frame(opcode, reinterpret_cast<const unsigned char*>(content.data()), content.size(), true);
    write({frame.begin(), frame.end()});
  }
  // The next frame that the peer gets.
  WsFrame next() {
    std::optional<WsFrame> frame;
    until([&] {
      const std::string bytes = read_some();
      parser_.feed(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
      frame = parser_.next();
      return frame.has_value();
    });
    return *frame;
  }
  static std::string text_of(const WsFrame& frame) { return {frame.payload.begin(), frame.payload.end()}; }
  // Queues messages of the bulk lane, more than the system takes while the peer reads nothing.
  void fill_up() {
    for (std::size_t i = 0; i < kMessages; ++i)
      channel().send_binary(std::make_shared<const Bytes>(kMessage, 'x'), 0, Lane::Bulk);
    for (std::size_t before = 0; before != channel().waiting_bytes();) {
      before = channel().waiting_bytes();
      go_on();
    }
  }
  Channel& channel() { return *link_->channel(); }

  std::shared_ptr<WebSocketLink> link_;
  std::deque<std::string> arrived_;
  bool ended_ = false;
  WsParser parser_;
};

TEST_F(WebSocketLinkTest, MessagesOfOneStepArriveInOneRecord) {
  boost::asio::post(io_, [&] {
    channel().send_text("one");
    channel().send_text("two");
    EXPECT_EQ(channel().waiting_bytes(), 0u);
  });
  std::string record;
  until([&] { return !(record = read_some()).empty(); });
  EXPECT_EQ(record, "\x81\x03one\x81\x03two");
}

TEST_F(WebSocketLinkTest, NothingMoreLeavesTheQueueWhileThePeerReadsNothing) {
  fill_up();
  const std::size_t waiting = channel().waiting_bytes();
  for (int i = 0; i < 10; ++i) {
    channel().send_binary(std::make_shared<const Bytes>(100, 'y'), 0, Lane::Bulk);
    go_on();
  }
  EXPECT_EQ(channel().waiting_bytes(), waiting + 1000);
  channel().send_text("urgent");
  std::size_t before = 0;
  for (WsFrame frame = next(); text_of(frame) != "urgent"; frame = next())
    before += frame.payload.size() - 2;
  EXPECT_EQ(before, kMessages * kMessage - waiting);
}

TEST_F(WebSocketLinkTest, FramesOfTheProtocolStandBetweenWholeFrames) {
  fill_up();
  send_frame(kWsPing, "here?");
  send_frame(kWsBinary, "key");
  channel().ping(Clock::now());
  std::size_t parts = 0, pongs = 0, pings = 0;
  for (std::size_t bytes = 0; bytes < kMessages * kMessage || pongs == 0 || pings == 0;) {
    const WsFrame frame = next();
    if (frame.opcode == kWsPong) ++pongs;
    if (frame.opcode == kWsPing) ++pings;
    if (frame.opcode != kWsBinary) continue;
    ++parts;
    bytes += frame.payload.size() - 2;
  }
  EXPECT_EQ(parts, kMessages * ((kMessage + kPart - 1) / kPart));
  until([&] { return !arrived_.empty(); });
  EXPECT_EQ(arrived_.front(), "key");
  EXPECT_FALSE(parser_.failed);
}

TEST_F(WebSocketLinkTest, CloseFrameFollowsEverythingThatWaits) {
  fill_up();
  channel().close(CloseCode::GoingAway, "enough", std::chrono::seconds(30));
  std::size_t bytes = 0;
  WsFrame frame = next();
  for (; frame.opcode == kWsBinary; frame = next())
    bytes += frame.payload.size() - 2;
  EXPECT_EQ(bytes, kMessages * kMessage);
  EXPECT_EQ(frame.opcode, kWsClose);
}

TEST_F(WebSocketLinkTest, NothingFollowsTheAnswerToThePeersCloseFrame) {
  fill_up();
  send_frame(kWsClose, "\x03\xE8");
  WsFrame frame = next();
  while (frame.opcode == kWsBinary)
    frame = next();
  EXPECT_EQ(frame.opcode, kWsClose);
  until([&] { return ended_; });
  until([&] {
    (void)read_some();
    return (SSL_get_shutdown(client_.get()) & SSL_RECEIVED_SHUTDOWN) != 0;
  });
  EXPECT_TRUE(channel().is_cut() || channel().closing());
}

TEST_F(WebSocketLinkTest, MessageThatIsSentWhileTheAnswerToACloseFrameWaitsIsNotWritten) {
  const Bytes content(1'000'000, 'x');
  const auto frame = encode_frame(kWsBinary, content.data(), content.size(), false);
  const boost::asio::const_buffer buffer = boost::asio::buffer(frame);
  ASSERT_FALSE(stream_->write({&buffer, 1}));
  send_frame(kWsClose, "\x03\xE8");
  go_on();
  channel().send_text("late");
  bool late = false;
  const auto read = [&] {
    const std::string bytes = read_some();
    parser_.feed(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    while (const auto arrived = parser_.next())
      late = late || arrived->opcode == kWsText;
    return late || ended_;
  };
  until(read);
  for (int i = 0; i < 1000; ++i)
    read();
  EXPECT_FALSE(late);
}

// The bytes that leave the queue of bulk messages at once, while the peer reads: the most of them.
TEST_F(WebSocketLinkTest, KeyPressWaitsBehindABoundedBatch) {
  stream_->socket().set_option(boost::asio::socket_base::send_buffer_size(1 << 22));
  limit_unsent(stream_->socket().native_handle(), 1 << 22);
  for (std::size_t i = 0; i < kMessages; ++i)
    channel().send_binary(std::make_shared<const Bytes>(kMessage, 'x'), 0, Lane::Bulk);
  std::size_t most = 0;
  for (std::size_t before = channel().waiting_bytes(); before > 0; before = channel().waiting_bytes()) {
    io_.restart();
    ASSERT_GT(io_.poll_one(), 0u);
    most = std::max(most, before - channel().waiting_bytes());
  }
  EXPECT_GT(most, 48u * 1024);
  EXPECT_LE(most, 64u * 1024);
}

TEST_F(WebSocketLinkTest, SlowSystemGetsASmallBatch) {
  fill_up();
  std::size_t most = 0;
  for (std::size_t before = channel().waiting_bytes(); before > 0;) {
    (void)read_some();
    io_.restart();
    io_.poll_one();
    most = std::max(most, before - channel().waiting_bytes());
    before = channel().waiting_bytes();
  }
  EXPECT_LE(most, 2 * kPart);
}

TEST_F(WebSocketLinkTest, PeerThatReadsNothingGetsOneAnswerToItsPings) {
  fill_up();
  for (int i = 0; i < 100; ++i)
    send_frame(kWsPing, std::to_string(i));
  send_frame(kWsBinary, "key");
  for (int i = 0; i < 200; ++i)
    go_on();
  EXPECT_TRUE(arrived_.empty());
  std::size_t pongs = 0;
  for (std::size_t bytes = 0; bytes < kMessages * kMessage || pongs < 100;) {
    const WsFrame frame = next();
    if (frame.opcode == kWsBinary) bytes += frame.payload.size() - 2;
    if (frame.opcode != kWsPong) continue;
    EXPECT_EQ(text_of(frame), std::to_string(pongs));
    ++pongs;
  }
  until([&] { return !arrived_.empty(); });
}

TEST_F(WebSocketLinkTest, CutEndsAWriteThatWaits) {
  fill_up();
  channel().cut("no more");
  until([&] { return ended_; });
  EXPECT_TRUE(channel().idle());
  EXPECT_FALSE(channel().full());
}

// With fragments, as a machine gets its messages.
class FragmentingLinkTest : public WebSocketLinkTest {
 protected:
  FragmentingLinkTest() : WebSocketLinkTest({false, kPart}) {}
};

TEST_F(FragmentingLinkTest, ControlFramesStandBetweenTheFragmentsOfAMessage) {
  fill_up();
  send_frame(kWsPing, "here?");
  channel().ping(Clock::now());
  channel().send_text("urgent");
  std::size_t pongs = 0, pings = 0, messages = 0, texts = 0;
  bool mixed = false, between = false;
  while (messages < kMessages || texts == 0 || pongs == 0 || pings == 0) {
    const WsFrame frame = next();
    between = between || (parser_.in_fragment && frame.opcode >= kWsClose);
    if (frame.opcode == kWsPong) ++pongs;
    if (frame.opcode == kWsPing) ++pings;
    if (frame.opcode == kWsText) ++texts;
    if (frame.opcode != kWsBinary) continue;
    ++messages;
    mixed = mixed || frame.payload != std::vector<std::uint8_t>(kMessage, 'x');
  }
  EXPECT_FALSE(mixed);
  EXPECT_TRUE(between);
  EXPECT_EQ(pongs, 1u);
  EXPECT_EQ(texts, 1u);
  EXPECT_FALSE(parser_.failed);
}

}  // namespace
}  // namespace vlk::relay
