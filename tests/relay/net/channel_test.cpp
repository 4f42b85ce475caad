// The channel of a connection: its queue, its closing, pings, and waiting coroutines. No socket is used.
#include "relay/net/channel.h"

#include <memory>
#include <string>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "relay/net/queue/piece_text.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

namespace asio = boost::asio;

class ChannelTest : public testing::Test {
 protected:
  // Starts the coroutine and runs it until it waits. The result becomes true when the coroutine has ended.
  std::shared_ptr<bool> spawn(asio::awaitable<void> work) {
    const auto done = std::make_shared<bool>(false);
    asio::co_spawn(io_, std::move(work), [done](std::exception_ptr) { *done = true; });
    run();
    return done;
  }
  void run() {
    io_.restart();
    io_.poll();
  }
  static std::string next(Channel& channel) {
    const auto piece = channel.take();
    return piece ? text_of(*piece) : "nothing";
  }
  std::string next() { return next(*channel_); }
  std::shared_ptr<Channel> divided(bool parts) {
    return std::make_shared<Channel>(io_.get_executor(), 10, Channel::Division{parts, 4});
  }
  static std::shared_ptr<const Bytes> bytes(std::string_view text) {
    return std::make_shared<const Bytes>(text.begin(), text.end());
  }

  asio::io_context io_;
  const std::shared_ptr<Channel> channel_ = std::make_shared<Channel>(io_.get_executor(), 10);
};

TEST_F(ChannelTest, MessagesAreTakenInOrderAndDiscardedByTheirTag) {
  channel_->send_text("first", 1);
  channel_->send_text("second", 2);
  channel_->send_text("third", 1);
  EXPECT_EQ(next(), "first");
  channel_->discard(1);
  EXPECT_EQ(next(), "second");
  EXPECT_EQ(next(), "nothing");
}

TEST_F(ChannelTest, MessageBeingWrittenStillCountsTowardsTheQueueLimit) {
  const auto channel = divided(false);
  channel->send_text("fourteen bytes");
  EXPECT_TRUE(channel->full());
  const auto piece = channel->take();
  EXPECT_TRUE(channel->full());
  channel->written(*piece);
  EXPECT_FALSE(channel->full()) << "ten bytes are within the limit";
}

TEST_F(ChannelTest, LongMessageIsTakenInPieces) {
  const auto channel = divided(false);
  channel->send_text("fourteen bytes");
  channel->send_text("");
  const struct {
    const char* text;
    bool first;
    bool last;
  } rows[] = {{"four", true, false},
              {"teen", false, false},
              {" byt", false, false},
              {"es", false, true},
              {"", true, true}};
  for (const auto& row : rows) {
    const auto piece = channel->take();
    ASSERT_TRUE(piece);
    EXPECT_EQ(text_of(*piece), row.text);
    EXPECT_EQ(piece->first, row.first) << row.text;
    EXPECT_EQ(piece->last, row.last) << row.text;
  }
  EXPECT_EQ(next(*channel), "nothing");
}

TEST_F(ChannelTest, LargeMessagesAndPicturesDoNotCountTowardsTheQueueLimit) {
  channel_->send_large(bytes("more than ten"), 7);
  EXPECT_TRUE(channel_->send_picture(bytes("more than ten"), 7, PictureKind::Key));
  EXPECT_FALSE(channel_->full());
  channel_->send_binary(bytes("more than ten"), 7, Lane::Bulk);
  EXPECT_TRUE(channel_->full());
}

TEST_F(ChannelTest, DiscardedMessageNoLongerCountsTowardsTheQueueLimit) {
  channel_->send_text("more than ten", 7);
  channel_->discard(7);
  EXPECT_FALSE(channel_->full());
}

TEST_F(ChannelTest, MessagesSentAfterCloseAreNotQueued) {
  channel_->send_text("before");
  channel_->close(CloseCode::GoingAway, "stop");
  channel_->send_text("after");
  EXPECT_EQ(next(), "before") << "a message that is queued at the close is still sent";
  EXPECT_EQ(next(), "nothing");
}

TEST_F(ChannelTest, CuttingAConnectionEmptiesItsQueueAndKeepsTheFirstReasonForItsEnd) {
  channel_->send_text("lost");
  channel_->close(CloseCode::GoingAway, "stop");
  channel_->cut("later");
  EXPECT_EQ(next(), "nothing");
  EXPECT_TRUE(channel_->is_cut());
  EXPECT_EQ(channel_->end_reason(), "stop");
}

TEST_F(ChannelTest, EachCallOfSendPingCloseOrCutCallsTheRequestCallbackOnce) {
  int requests = 0;
  channel_->on_request([&] { ++requests; });
  channel_->send_text("a");
  EXPECT_EQ(requests, 1);
  channel_->ping(Clock::now() + std::chrono::seconds(1));
  EXPECT_EQ(requests, 2);
  channel_->close(CloseCode::GoingAway, "stop");
  channel_->close(CloseCode::GoingAway, "again");
  EXPECT_EQ(requests, 3);
  channel_->cut("stop");
  channel_->cut("again");
  EXPECT_EQ(requests, 4);
}

TEST_F(ChannelTest, NextPingIsRequestedOnlyAfterThePeerHasSentSomething) {
  const auto start = Clock::now() + std::chrono::seconds(1);
  channel_->ping(start);
  EXPECT_TRUE(channel_->ping_requested());
  channel_->ping_sent();
  channel_->ping(start + std::chrono::seconds(1));
  EXPECT_FALSE(channel_->ping_requested());
  channel_->count_as_heard(start + std::chrono::seconds(2));
  channel_->ping(start + std::chrono::seconds(3));
  EXPECT_TRUE(channel_->ping_requested());
}

TEST_F(ChannelTest, WriteStallIsMeasuredWhileMessagesAreQueued) {
  const auto later = Clock::now() + std::chrono::hours(1);
  EXPECT_EQ(channel_->write_stall(later), Clock::duration::zero());
  channel_->send_text("waits");
  EXPECT_GT(channel_->write_stall(later), std::chrono::minutes(59));
  (void)next();
  channel_->finished_work();
  EXPECT_EQ(channel_->write_stall(later), Clock::duration::zero());
}

TEST_F(ChannelTest, EachConfirmedByteEndsAWriteStall) {
  std::uint64_t confirmed = 100;
  channel_->on_measure([&] { return TcpProgress{confirmed, false}; });
  channel_->send_text("waits");
  const auto start = Clock::now();
  (void)channel_->write_stall(start);
  EXPECT_EQ(channel_->write_stall(start + std::chrono::seconds(14)), std::chrono::seconds(14));
  ++confirmed;
  EXPECT_EQ(channel_->write_stall(start + std::chrono::seconds(14)), std::chrono::seconds(0));
  EXPECT_EQ(channel_->write_stall(start + std::chrono::seconds(29)), std::chrono::seconds(15));
}

TEST_F(ChannelTest, WaitForRoomReturnsWhenTheQueueIsNotFull) {
  EXPECT_TRUE(*spawn(channel_->wait_for_room()));
  channel_->send_text("more than ten");
  const auto done = spawn(channel_->wait_for_room());
  EXPECT_FALSE(*done);
  channel_->written(*channel_->take());
  run();
  EXPECT_TRUE(*done);
}

TEST_F(ChannelTest, BulkMessagesDoNotTakeTheRoomForAnswers) {
  const auto bulk = std::make_shared<const Bytes>(std::size_t{100}, std::uint8_t{'x'});
  channel_->send_binary(bulk, 7, Lane::Bulk);
  EXPECT_TRUE(channel_->full());
  EXPECT_TRUE(*spawn(channel_->wait_for_room()));
  channel_->send_text("more than ten");
  const auto done = spawn(channel_->wait_for_room());
  EXPECT_FALSE(*done);
  channel_->written(*channel_->take());
  run();
  EXPECT_TRUE(*done) << "the answer is written, and the bulk message still waits";
  EXPECT_TRUE(channel_->full());
}

TEST_F(ChannelTest, WaitForRoomReturnsWhenTheConnectionIsCut) {
  channel_->send_text("more than ten");
  const auto done = spawn(channel_->wait_for_room());
  channel_->cut("gone");
  run();
  EXPECT_TRUE(*done);
}

TEST_F(ChannelTest, WaitForChangeReturnsWhenMessagesAreDiscarded) {
  channel_->send_text("more than ten", 7);
  const auto done = spawn(channel_->wait_for_change());
  EXPECT_FALSE(*done);
  channel_->discard(7);
  run();
  EXPECT_TRUE(*done);
}

TEST_F(ChannelTest, ArrivedMessagesAreCountedByTheirKind) {
  Traffic traffic;
  channel_->count_arrived({.size = 5, .bytes = {1, 2, 3, 4, 5}});
  channel_->count_into(traffic);
  const auto arrive = [&](Msg type, std::uint64_t size) {
    channel_->count_arrived({.kept = false, .size = size, .bytes = *json_envelope(type, 7, "{}")});
  };
  arrive(Msg::StreamFrame, 1000);
  arrive(Msg::StreamFrame, 500);
  arrive(Msg::FileChunk, 40);
  arrive(Msg::Heartbeat, 12);
  channel_->count_arrived({.text = true, .size = 30, .bytes = {'{', '}'}});
  channel_->count_arrived({.size = 1, .bytes = {7}});
  EXPECT_EQ(traffic.in.pictures.messages, 2u);
  EXPECT_EQ(traffic.in.pictures.bytes, 1500u);
  EXPECT_EQ(traffic.in.bulk.messages, 1u);
  EXPECT_EQ(traffic.in.bulk.bytes, 40u);
  EXPECT_EQ(traffic.in.others.messages, 3u);
  EXPECT_EQ(traffic.in.others.bytes, 43u);
}

}  // namespace
}  // namespace vlk::relay
