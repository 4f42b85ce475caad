// Downloads that wait for their browser: what is sent when, what is kept, and what is given up.
#include "relay/session/files/downloads.h"

#include <algorithm>
#include <span>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>

#include "relay/base/secrets.h"
#include "relay/session/files/transfers.h"
#include "relay/session/transfer_bytes.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

constexpr std::uint32_t kSession = 7, kDownload = 40;
constexpr std::size_t kChunk = 256 * 1024;
constexpr std::size_t kQueue = 1 << 20;

using Numbers = std::vector<std::uint32_t>;

class DownloadsTest : public testing::Test {
 protected:
  explicit DownloadsTest(SpoolLimits limits = {})
      : spools_(folder_.path() / "spool", io_.get_executor(), limits) {
    start_sodium();
    downloads_.listen({[this](std::uint32_t, std::uint32_t download, const char* code) {
                         failures_.push_back(std::to_string(download) + ' ' + code);
                       },
                       [this](std::uint32_t) { ++woken_; }});
  }

  std::shared_ptr<Channel> browser() { return std::make_shared<Channel>(io_.get_executor(), kQueue); }
  static std::shared_ptr<const Bytes> message(std::uint32_t download, std::uint32_t index,
                                              std::size_t size = kChunk) {
    const std::string content(size, static_cast<char>('a' + index % 26));
    return std::make_shared<const Bytes>(envelope(Msg::FileChunk, kSession, chunk(download, content, index)));
  }
  void arrive(std::uint32_t index, std::uint32_t download = kDownload) {
    downloads_.add_chunk(kSession, download, message(download, index));
  }
  void arrive(std::uint32_t first, std::uint32_t last, std::uint32_t download) {
    for (std::uint32_t index = first; index < last; ++index)
      arrive(index, download);
  }
  void arrive_end(std::uint32_t download = kDownload) {
    downloads_.add_end(kSession, download,
                       std::make_shared<const Bytes>(envelope(Msg::FileTransferEnd, kSession, "end")));
  }
  // Waits until the disk has done what it was given, and calls what waits for it. Jobs are done in their
  // order, so the last one ends after all others.
  void settle() {
    const auto probe = spools_.open();
    bool done = false;
    ASSERT_TRUE(probe->write(std::make_shared<const Bytes>(1), [&](bool) { done = true; }));
    io_.restart();
    const auto work = boost::asio::make_work_guard(io_);
    while (!done)
      io_.run_one();
  }
  // Writes what is queued for the browser until nothing more comes, and returns the indexes of the chunks;
  // the end message is kEnd.
  static constexpr std::uint32_t kEnd = 999;
  Numbers take(Channel& channel) {
    Numbers indexes;
    channel.on_bulk_written([&](const Channel::Piece&) { downloads_.send_more(channel); });
    // What comes from the disk arrives during settle() and is taken in the next round.
    for (int quiet = 0; quiet < 3; ++quiet) {
      while (const auto piece = channel.take()) {
        quiet = -1;
        const auto& bytes = *piece->message;
        if (read_header(bytes)->type == Msg::FileTransferEnd)
          indexes.push_back(kEnd);
        else
          check_chunk(bytes, indexes);
        channel.written(*piece);
      }
      settle();
    }
    channel.on_bulk_written(nullptr);
    return indexes;
  }
  static void check_chunk(const Bytes& bytes, Numbers& indexes) {
    indexes.push_back(ByteReader(std::span(bytes).subspan(kEnvelopeHeaderSize + 4)).u32().value());
    EXPECT_EQ(bytes.back(), 'a' + indexes.back() % 26);
    EXPECT_EQ(bytes.size(), kEnvelopeHeaderSize + kChunkHeader + kChunk);
  }
  static Numbers numbers(std::uint32_t first, std::uint32_t last) {
    Numbers all;
    for (std::uint32_t number = first; number < last; ++number)
      all.push_back(number);
    return all;
  }

  vantelink_test::TempFolder folder_;
  boost::asio::io_context io_;
  Spools spools_;
  Downloads downloads_{spools_};
  std::vector<std::string> failures_;
  int woken_ = 0;
};

TEST_F(DownloadsTest, ChunksAreSentInOrderAndTheEndFollowsThem) {
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  arrive(0, 10, kDownload);
  arrive_end();
  Numbers expected = numbers(0, 10);
  expected.push_back(kEnd);
  EXPECT_EQ(take(*channel), expected);
  EXPECT_FALSE(downloads_.finish(kSession, kDownload)) << "nothing is confirmed";
  downloads_.stored(kSession, kDownload, 10 * kChunk);
  EXPECT_EQ(downloads_.confirmed(kSession, kDownload), 10 * kChunk);
  EXPECT_EQ(spools_.used(), 0u);
  EXPECT_TRUE(downloads_.finish(kSession, kDownload));
  EXPECT_FALSE(downloads_.finish(kSession, kDownload));
}

TEST_F(DownloadsTest, DownloadOfAnEmptyFileIsItsEnd) {
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  arrive_end();
  EXPECT_EQ(take(*channel), Numbers{kEnd});
  EXPECT_TRUE(downloads_.finish(kSession, kDownload));
}

TEST_F(DownloadsTest, QueueOfABrowserThatReadsNothingStaysBelowItsLimit) {
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  for (std::uint32_t index = 0; index < 100; ++index) {
    arrive(index);
    settle();
    ASSERT_FALSE(channel->full());
  }
  EXPECT_EQ(take(*channel).size(), Downloads::kWindow / kChunk);
}

TEST_F(DownloadsTest, NoMoreThanTheWindowIsSentAheadOfWhatIsConfirmed) {
  constexpr std::uint32_t kHeld = Downloads::kWindow / kChunk;
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  arrive(0, kHeld + 10, kDownload);
  EXPECT_EQ(take(*channel), numbers(0, kHeld));
  downloads_.stored(kSession, kDownload, 4 * kChunk);
  EXPECT_EQ(take(*channel), numbers(kHeld, kHeld + 4));
  downloads_.stored(kSession, kDownload, 5 * kChunk - 1);
  EXPECT_EQ(downloads_.confirmed(kSession, kDownload), 4 * kChunk) << "a part of a chunk is not forgotten";
  EXPECT_EQ(take(*channel), Numbers());
}

TEST_F(DownloadsTest, BrowserThatComesBackContinuesWhereItWas) {
  const auto first = browser();
  downloads_.begin(kSession, kDownload, first);
  arrive(0, 8, kDownload);
  EXPECT_EQ(take(*first).size(), 8u);
  downloads_.stored(kSession, kDownload, 4 * kChunk);
  downloads_.leave(kSession);
  arrive(8, 20, kDownload);
  arrive_end();
  settle();
  const auto second = browser();
  EXPECT_EQ(take(*second), Numbers()) << "the browser has not asked for it";

  EXPECT_FALSE(downloads_.start_after(kSession, kDownload, 3 * kChunk)) << "forgotten";
  EXPECT_FALSE(downloads_.start_after(kSession, kDownload, 6 * kChunk + 1)) << "not the end of a chunk";
  EXPECT_FALSE(downloads_.start_after(kSession, kDownload, 21 * kChunk)) << "not arrived";
  EXPECT_FALSE(downloads_.start_after(kSession, kDownload + 1, 0));
  EXPECT_FALSE(downloads_.start_after(kSession + 1, kDownload, 0));
  EXPECT_EQ(downloads_.start_after(kSession, kDownload, 4 * kChunk)->chunk, 4u);
  const auto start = downloads_.start_after(kSession, kDownload, 6 * kChunk);
  ASSERT_TRUE(start);
  EXPECT_EQ(start->chunk, 6u);
  downloads_.go_on(kSession, kDownload, second, *start);
  Numbers expected = numbers(6, 20);
  expected.push_back(kEnd);
  EXPECT_EQ(take(*second), expected);
  downloads_.stored(kSession, kDownload, 20 * kChunk);
  EXPECT_TRUE(downloads_.finish(kSession, kDownload));
  EXPECT_EQ(spools_.used(), 0u);
}

TEST_F(DownloadsTest, BrowserWithTheWholeFileGetsTheEndAgain) {
  const auto first = browser();
  downloads_.begin(kSession, kDownload, first);
  arrive(0, 3, kDownload);
  arrive_end();
  (void)take(*first);
  downloads_.leave(kSession);
  const auto second = browser();
  downloads_.go_on(kSession, kDownload, second,
                   downloads_.start_after(kSession, kDownload, 3 * kChunk).value());
  EXPECT_EQ(take(*second), Numbers{kEnd});
}

TEST_F(DownloadsTest, BrowserCanLeaveWhileAChunkIsReadFromTheDisk) {
  const auto first = browser();
  downloads_.begin(kSession, kDownload, first);
  arrive(0, 30, kDownload);
  settle();
  (void)first->take();
  downloads_.leave(kSession);
  const auto second = browser();
  downloads_.go_on(kSession, kDownload, second, {0, 0});
  downloads_.leave(kSession);
  const auto third = browser();
  downloads_.go_on(kSession, kDownload, third, {10 * kChunk, 10});
  EXPECT_EQ(take(*third), numbers(10, 30));
}

TEST_F(DownloadsTest, DownloadsTakeTurns) {
  const auto channel = browser();
  for (const std::uint32_t download : {1u, 2u}) {
    downloads_.begin(kSession, download, channel);
    arrive(0, 20, download);
  }
  const Numbers indexes = take(*channel);
  ASSERT_EQ(indexes.size(), 40u);
  // What was queued before the second began comes first.
  EXPECT_EQ(std::count(indexes.begin() + 4, indexes.begin() + 14, 19u), 0);
  EXPECT_EQ(std::count(indexes.begin() + 20, indexes.end(), 19u), 2);
}

TEST_F(DownloadsTest, DroppedDownloadsGiveTheirRoomBackAndNothingMoreIsSent) {
  const auto channel = browser();
  downloads_.begin(kSession, 1, channel);
  downloads_.begin(kSession, 2, channel);
  arrive(0, 20, 1);
  downloads_.drop(kSession, 1);
  arrive(20, 21, 1);
  EXPECT_EQ(spools_.used(), 0u);
  EXPECT_LT(take(*channel).size(), 5u);
  arrive(0, 20, 2);
  EXPECT_GT(spools_.used(), 0u);
  downloads_.end(kSession);
  EXPECT_EQ(spools_.used(), 0u);
  settle();
  EXPECT_TRUE(failures_.empty());
}

TEST_F(DownloadsTest, BrowserThatDropsADownloadLearnsThatTheMachineHasEndedIt) {
  const auto channel = browser();
  downloads_.begin(kSession, 1, channel);
  downloads_.begin(kSession, 2, channel);
  arrive(0, 100, 1);
  arrive_end(1);
  arrive(0, 100, 2);
  downloads_.drop(kSession, 1);
  downloads_.drop(kSession, 2);
  const Numbers indexes = take(*channel);
  EXPECT_EQ(std::ranges::count(indexes, kEnd), 1) << "the machine still sends the second one";
  EXPECT_EQ(indexes.back(), kEnd);
  downloads_.begin(kSession, 3, channel);
  arrive_end(3);
  downloads_.drop(kSession, 3);
  EXPECT_EQ(take(*channel), Numbers{kEnd}) << "the end is sent once";
}

TEST_F(DownloadsTest, OversizedChunkEndsTheDownload) {
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  downloads_.add_chunk(kSession, kDownload, message(kDownload, 0, Downloads::kLargestChunk));
  EXPECT_EQ(failures_, std::vector<std::string>{"40 not-kept"});
  EXPECT_EQ(take(*channel), Numbers());
}

TEST_F(DownloadsTest, MachineWaitsForTheDiskAndIsWoken) {
  const auto channel = browser();
  downloads_.begin(kSession, kDownload, channel);
  // The same bytes each time, so that the loop is faster than every disk.
  const auto bytes = message(kDownload, 0);
  for (int i = 0; i < 200; ++i)
    downloads_.add_chunk(kSession, kDownload, bytes);
  EXPECT_TRUE(downloads_.busy(kSession));
  EXPECT_EQ(woken_, 0);
  settle();
  EXPECT_EQ(woken_, 1);
}

class FullSpoolTest : public DownloadsTest {
 protected:
  FullSpoolTest() : DownloadsTest({2u << 20, 64u << 20}) {}
};

TEST_F(FullSpoolTest, DownloadThatDoesNotFitEndsAndTheOthersGoOn) {
  const auto channel = browser();
  downloads_.begin(kSession, 1, channel);
  downloads_.begin(kSession, 2, channel);
  arrive(0, 20, 1);
  EXPECT_EQ(failures_, std::vector<std::string>{"1 spool-full"});
  EXPECT_EQ(spools_.used(), 0u);
  arrive(0, 2, 2);
  const Numbers indexes = take(*channel);
  EXPECT_EQ((Numbers{indexes.end() - 2, indexes.end()}), numbers(0, 2));
  EXPECT_EQ(failures_.size(), 1u);
}

}  // namespace
}  // namespace vlk::relay
