// The order of the outgoing messages of one peer, and which pictures a slow viewer gets.
#include "relay/net/queue/outbox.h"

#include <chrono>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "relay/net/queue/piece_text.h"

namespace vlk::relay {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kTag = 7;

class OutboxTest : public testing::Test {
 protected:
  static OutgoingMessage message(std::string_view text, std::uint32_t tag = kTag) {
    return {.tag = tag, .bytes = std::make_shared<const Bytes>(text.begin(), text.end())};
  }
  static OutgoingMessage picture(std::string_view text, PictureKind kind, std::uint32_t tag = kTag) {
    OutgoingMessage result = message(text, tag);
    result.kind = kind;
    return result;
  }
  bool show(std::string_view text, PictureKind kind, std::uint32_t tag = kTag) {
    return outbox_.add_picture(picture(text, kind, tag), now_);
  }
  static std::string next(Outbox& outbox) {
    const auto piece = outbox.take();
    if (!piece) return "nothing";
    outbox.written(*piece, Clock::now());
    return text_of(*piece);
  }
  std::string next() { return next(outbox_); }
  // The pieces that are queued, with a space between two of them.
  std::string all() {
    std::string order;
    while (!outbox_.empty())
      order += (order.empty() ? "" : " ") + next();
    return order;
  }

  Clock::time_point now_ = Clock::now();
  Outbox outbox_{{.parts = true, .piece_bytes = 4}};
};

TEST_F(OutboxTest, EarlierLaneOvertakesALaterOneBetweenTwoParts) {
  outbox_.add(Lane::Bulk, message("aaaabbbb"));
  EXPECT_EQ(next(), "aaaa");
  EXPECT_TRUE(show("pict", PictureKind::Key));
  outbox_.add(Lane::Control, message("list"));
  outbox_.add(Lane::Urgent, message("pong"));
  EXPECT_EQ(all(), "pong list pict bbbb");
}

TEST_F(OutboxTest, FileGetsItsPartOfALineThatPicturesFill) {
  outbox_.add(Lane::Bulk, message("1111222233334444"));
  EXPECT_TRUE(show(std::string(40, 'p'), PictureKind::Key));
  EXPECT_EQ(all(), "pppp pppp pppp pppp 1111 pppp pppp pppp pppp 2222 pppp pppp 3333 4444");
}

TEST_F(OutboxTest, FragmentsOfTwoMessagesDoNotAlternate) {
  Outbox fragments{{.parts = false, .piece_bytes = 4}};
  fragments.add(Lane::Bulk, message("aaaabbbb"));
  EXPECT_EQ(next(fragments), "aaaa");
  fragments.add(Lane::Urgent, message("key"));
  EXPECT_EQ(next(fragments), "bbbb");
  EXPECT_EQ(next(fragments), "key");
}

TEST_F(OutboxTest, TallyCountsTheWrittenAndTheDroppedPicturesOfAStream) {
  EXPECT_TRUE(show("keykey", PictureKind::Key));
  EXPECT_TRUE(show("more", PictureKind::Delta));
  EXPECT_TRUE(show("other", PictureKind::Key, 8));
  const auto first = outbox_.take();
  outbox_.written(*first, now_ + 10ms);
  EXPECT_EQ(outbox_.take_tally(kTag).written, 0u) << "a part of the picture is not written";
  const auto last = outbox_.take();
  outbox_.written(*last, now_ + 30ms);
  now_ += 300ms;
  EXPECT_FALSE(show("late", PictureKind::Delta));
  const PictureTally tally = outbox_.take_tally(kTag);
  EXPECT_EQ(tally.written, 1u);
  EXPECT_EQ(tally.waited, 30ms);
  EXPECT_EQ(tally.dropped, 2u) << "the late picture and the one that waited";
  EXPECT_EQ(outbox_.take_tally(kTag).dropped, 0u) << "each picture counts once";
  outbox_.remove(kTag);
  EXPECT_EQ(outbox_.take_tally(kTag).written, 0u);
}

TEST_F(OutboxTest, RemovedMessageIsGivenUpBetweenTwoParts) {
  outbox_.add(Lane::Urgent, message("aaaabbbb"));
  outbox_.add(Lane::Bulk, message("ccccdddd"));
  outbox_.add(Lane::Bulk, message("keep", 8));
  EXPECT_EQ(next(), "aaaa");
  outbox_.remove(kTag);
  EXPECT_EQ(all(), "keep");
  EXPECT_EQ(outbox_.counted_bytes(), 0u);
}

TEST_F(OutboxTest, RemovedMessageIsFinishedIfItsFirstFragmentWasTaken) {
  Outbox fragments{{.parts = false, .piece_bytes = 4}};
  fragments.add(Lane::Urgent, message("aaaabbbb"));
  EXPECT_EQ(next(fragments), "aaaa");
  fragments.remove(kTag);
  EXPECT_EQ(next(fragments), "bbbb") << "the WebSocket message could not be completed otherwise";
}

TEST_F(OutboxTest, BulkMessagesCanBeMovedToTheUrgentLaneOrRemovedOneByOne) {
  outbox_.add(Lane::Bulk, message("aa"));
  outbox_.add(Lane::Bulk, message("bb"));
  outbox_.add(Lane::Bulk, message("cc", 8));
  outbox_.add(Lane::Urgent, message("key"));
  EXPECT_TRUE(outbox_.oldest_bulk());
  outbox_.remove_bulk(kTag, [](const Bytes& bytes) { return bytes[0] == 'b'; });
  outbox_.promote_bulk(kTag);
  EXPECT_EQ(outbox_.counted_bytes(), 7u);
  EXPECT_EQ(outbox_.unwritten_but_bulk(), 5u);
  EXPECT_EQ(all(), "key aa cc");
  EXPECT_FALSE(outbox_.oldest_bulk());
}

TEST_F(OutboxTest, LargeMessageIsFoundByItsTagUntilItsLastPartIsTaken) {
  OutgoingMessage large = message("aaaabbbb");
  large.large = true;
  outbox_.add(Lane::Bulk, std::move(large));
  EXPECT_EQ(outbox_.counted_bytes(), 0u);
  EXPECT_TRUE(outbox_.has_large(kTag));
  EXPECT_FALSE(outbox_.has_large(8));
  (void)next();
  EXPECT_TRUE(outbox_.has_large(kTag));
  (void)next();
  EXPECT_FALSE(outbox_.has_large(kTag));
}

TEST_F(OutboxTest, ViewerThatKeepsUpGetsEachPicture) {
  EXPECT_TRUE(show("set", PictureKind::Settings));
  EXPECT_TRUE(show("key", PictureKind::Key));
  for (const char* delta : {"d1", "d2", "d3"}) {
    now_ += 50ms;
    EXPECT_TRUE(show(delta, PictureKind::Delta));
  }
  EXPECT_EQ(all(), "set key d1 d2 d3");
}

TEST_F(OutboxTest, ViewerThatIsBehindGetsNothingUntilTheNextKeyFrame) {
  EXPECT_TRUE(show("first key", PictureKind::Key));
  EXPECT_EQ(next(), "firs");
  EXPECT_TRUE(show("d1", PictureKind::Delta));
  now_ += PictureGate::kLongestWait + 1ms;
  EXPECT_FALSE(show("d2", PictureKind::Delta)) << "a key frame is needed";
  EXPECT_EQ(next(), "t ke") << "a picture that was begun is completed";
  EXPECT_EQ(next(), "y");
  EXPECT_FALSE(show("d3", PictureKind::Delta)) << "the pictures before it are missing";
  EXPECT_TRUE(show("key", PictureKind::Key));
  EXPECT_TRUE(show("d4", PictureKind::Delta));
  EXPECT_EQ(all(), "key d4");
}

TEST_F(OutboxTest, KeyFrameStaysQueuedWhenThePicturesAfterItAreTooLate) {
  EXPECT_TRUE(show("long key", PictureKind::Key));
  EXPECT_EQ(next(), "long");
  now_ += PictureGate::kLongestWait + 1ms;
  EXPECT_TRUE(show("new", PictureKind::Key));
  EXPECT_FALSE(show("d1", PictureKind::Delta));
  EXPECT_EQ(all(), " key new");
}

TEST_F(OutboxTest, KeyFrameReplacesTheGroupThatWaits) {
  EXPECT_TRUE(show("set", PictureKind::Settings));
  EXPECT_TRUE(show("k1", PictureKind::Key));
  EXPECT_TRUE(show("d1", PictureKind::Delta));
  EXPECT_TRUE(show("k2", PictureKind::Key));
  EXPECT_EQ(all(), "set k2") << "the settings of the stream stay";
}

TEST_F(OutboxTest, OnlyTheNewestCompletePictureWaits) {
  EXPECT_TRUE(show("set", PictureKind::Settings));
  for (const char* file : {"j1", "j2", "j3"})
    EXPECT_TRUE(show(file, PictureKind::Complete));
  EXPECT_EQ(all(), "set j3");
}

TEST_F(OutboxTest, NewStreamReplacesAllThatWaitsOfTheOld) {
  EXPECT_TRUE(show("s1", PictureKind::Settings));
  EXPECT_TRUE(show("k1", PictureKind::Key));
  EXPECT_TRUE(show("s2", PictureKind::Settings));
  EXPECT_EQ(all(), "s2");
}

TEST_F(OutboxTest, TooManyBytesOfPicturesMakeTheViewerWaitForAKeyFrame) {
  EXPECT_TRUE(show("key", PictureKind::Key));
  EXPECT_TRUE(show(std::string(PictureGate::kMostBytes, 'd'), PictureKind::Delta));
  EXPECT_FALSE(show("more", PictureKind::Delta));
  EXPECT_EQ(all(), "key");
}

TEST_F(OutboxTest, StreamsOfOneViewerAreIndependent) {
  EXPECT_TRUE(show("slow", PictureKind::Key, 1));
  now_ += PictureGate::kLongestWait + 1ms;
  EXPECT_TRUE(show("k", PictureKind::Key, 2));
  EXPECT_FALSE(show("d", PictureKind::Delta, 1));
  EXPECT_TRUE(show("d", PictureKind::Delta, 2));
  EXPECT_EQ(all(), "slow k d");
}

TEST_F(OutboxTest, StreamThatWasRemovedBeginsAgainWithoutAKeyFrameNeeded) {
  EXPECT_TRUE(show("key", PictureKind::Key));
  now_ += PictureGate::kLongestWait + 1ms;
  EXPECT_FALSE(show("d1", PictureKind::Delta));
  outbox_.remove(kTag);
  EXPECT_TRUE(show("d2", PictureKind::Delta));
}

TEST_F(OutboxTest, TrafficCountsWhatWasWrittenHowLongPicturesWaitedAndWhatWasDropped) {
  Traffic traffic;
  outbox_.count_into(traffic);
  outbox_.add(Lane::Urgent, message("pong"));
  outbox_.add(Lane::Bulk, message("aaaabb"));
  EXPECT_EQ(outbox_.waiting_bytes(), 10u);
  EXPECT_TRUE(show("key", PictureKind::Key));
  EXPECT_TRUE(show("newer", PictureKind::Key));
  EXPECT_EQ(traffic.dropped_pictures, 1u);
  for (int i = 0; i < 3; ++i)
    outbox_.written(*outbox_.take(), now_ + 30ms);
  EXPECT_EQ(outbox_.waiting_bytes(), 6u);
  EXPECT_EQ(traffic.out.others.messages, 1u);
  EXPECT_EQ(traffic.out.others.bytes, 4u);
  EXPECT_EQ(traffic.out.pictures.messages, 1u);
  EXPECT_EQ(traffic.out.pictures.bytes, 5u);
  EXPECT_EQ(traffic.waited.sum(), 30ms);
  next();
  EXPECT_EQ(traffic.out.bulk.messages, 0u) << "a part of the message is left";
  next();
  EXPECT_EQ(traffic.out.bulk.messages, 1u);
  EXPECT_EQ(traffic.out.bulk.bytes, 6u);
}

TEST_F(OutboxTest, PictureThatASlowViewerDoesNotGetIsCounted) {
  Traffic traffic;
  outbox_.count_into(traffic);
  EXPECT_TRUE(show("key", PictureKind::Key));
  EXPECT_TRUE(show("one", PictureKind::Delta));
  now_ += PictureGate::kLongestWait + 1ms;
  EXPECT_FALSE(show("two", PictureKind::Delta));
  EXPECT_EQ(traffic.dropped_pictures, 2u) << "the one that waited, and the new one";
}

}  // namespace
}  // namespace vlk::relay
