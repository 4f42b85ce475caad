// The channel of a connection: its queue, its closing, pings, and waiting coroutines. No socket is used.
#include "relay/net/channel.h"

#include <memory>
#include <string>
#include <utility>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

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
    return piece ? std::string(piece->bytes().begin(), piece->bytes().end()) : "nothing";
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
    EXPECT_EQ(std::string(piece->bytes().begin(), piece->bytes().end()), row.text);
    EXPECT_EQ(piece->first, row.first) << row.text;
    EXPECT_EQ(piece->last, row.last) << row.text;
  }
  EXPECT_EQ(next(*channel), "nothing");
}

TEST_F(ChannelTest, PiecesOfABulkMessageAlternateWithOtherMessages) {
  const auto channel = divided(true);
  channel->send_bulk(bytes("aaaabbbbccccd"), 7);
  channel->send_text("one");
  channel->send_text("two");
  EXPECT_FALSE(channel->full()) << "a bulk message does not count";
  EXPECT_TRUE(channel->has_bulk(7));
  EXPECT_FALSE(channel->has_bulk(8));
  std::string order;
  for (int i = 0; i < 6; ++i)
    order += next(*channel) + ' ';
  EXPECT_EQ(order, "one aaaa two bbbb cccc d ");
  EXPECT_FALSE(channel->has_bulk(7));
}

TEST_F(ChannelTest, OtherPartsOfADiscardedMessageAreNotTaken) {
  const auto channel = divided(true);
  channel->send_binary(bytes("aaaabbbb"), 7);
  channel->send_bulk(bytes("ccccdddd"), 7);
  const auto first = channel->take();
  (void)channel->take();
  channel->discard(7);
  channel->send_text("ended");
  channel->written(*first);
  EXPECT_EQ(next(*channel), "ende");
  EXPECT_EQ(next(*channel), "d");
  EXPECT_EQ(next(*channel), "nothing");
  EXPECT_FALSE(channel->full()) << "the discarded bytes no longer count";
}

TEST_F(ChannelTest, FragmentsOfADiscardedMessageAreTakenOnceItsFirstFragmentWas) {
  const auto channel = divided(false);
  channel->send_binary(bytes("aaaabbbb"), 7);
  EXPECT_EQ(next(*channel), "aaaa");
  channel->discard(7);
  EXPECT_EQ(next(*channel), "bbbb") << "the WebSocket message could not be completed otherwise";
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
  channel_->on_measure([&] { return confirmed; });
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

}  // namespace
}  // namespace vlk::relay
