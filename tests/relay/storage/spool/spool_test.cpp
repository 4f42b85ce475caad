// The room of the spools, the order of their reads and writes, and who is called back when.
#include <algorithm>
#include <stdexcept>
#include <thread>

#include "relay/storage/spool/spool_fixture.h"
#include "relay/storage/spool/spools.h"

namespace vlk::relay {
namespace {

// The largest message of one slot.
constexpr std::size_t kOneSlot = kSlotBytes - 16;

void ignore(bool) {}

TEST_F(SpoolTest, MessagesAreReadInAnyOrder) {
  start();
  const auto spool = spools_->open();
  const std::vector<std::size_t> sizes = {0, 1, 300'000, kOneSlot, kOneSlot + 1, 5 * kSlotBytes, 17};
  std::vector<Spool::Place> places;
  for (const std::size_t size : sizes)
    places.push_back(stored(*spool, message(size)));
  for (std::size_t i = 0; i < sizes.size(); ++i)
    EXPECT_TRUE(holds(*spool, places[i], message(sizes[i]))) << sizes[i];
  for (const std::size_t i : {3u, 0u, 6u, 2u, 5u, 1u, 4u, 2u})
    EXPECT_TRUE(holds(*spool, places[i], message(sizes[i]))) << sizes[i];
}

TEST_F(SpoolTest, ReadRightAfterItsWriteGetsTheBytesAndCallbacksKeepTheOrder) {
  start();
  const auto spool = spools_->open();
  std::string order;
  for (std::uint8_t i = 0; i < 50; ++i) {
    const auto sent = message(70'000, i);
    const auto place = spool->write(sent, [&](bool good) { order += good ? 'w' : '-'; });
    ASSERT_TRUE(place);
    spool->read(*place, [&order, sent](const Message& got) { order += got && *got == *sent ? 'r' : '-'; });
  }
  EXPECT_EQ(order, "") << "callbacks are called by the loop only";
  ASSERT_TRUE(run_until([&] { return order.size() == 100; }));
  for (std::size_t i = 0; i < order.size(); i += 2)
    EXPECT_EQ(order.substr(i, 2), "wr") << i;
}

TEST_F(SpoolTest, ReadOfAPlaceThatIsNotTakenGetsNull) {
  start();
  const auto spool = spools_->open();
  EXPECT_EQ(fetch(*spool, 5), nullptr);
  const auto place = stored(*spool, message(5));
  spool->release(place);
  spool->release(place);
  EXPECT_EQ(fetch(*spool, place), nullptr);
  EXPECT_EQ(spool->used(), 0u);
}

TEST_F(SpoolTest, PlacesAreNotUsedAgain) {
  start();
  const auto spool = spools_->open();
  const auto first = stored(*spool, message(5));
  spool->release(first);
  EXPECT_NE(stored(*spool, message(5)), first);
}

TEST_F(SpoolTest, ReadUnderWayIsFinishedAfterTheRelease) {
  start();
  const auto spool = spools_->open();
  const auto sent = message(200'000, 1);
  const auto place = spool->write(sent, ignore);
  Message got;
  spool->read(*place, [&](Message bytes) { got = std::move(bytes); });
  spool->release(*place);
  // The same slots are used for another message.
  const auto other = stored(*spool, message(200'000, 2));
  ASSERT_TRUE(got);
  EXPECT_EQ(*got, *sent);
  EXPECT_TRUE(holds(*spool, other, message(200'000, 2)));
}

TEST_F(SpoolTest, WrittenIsCalledAlthoughThePlaceIsReleased) {
  start();
  const auto spool = spools_->open();
  std::optional<bool> written;
  const auto place = spool->write(message(100), [&](bool good) { written = good; });
  spool->release(*place);
  ASSERT_TRUE(run_until([&] { return written.has_value(); }));
  EXPECT_TRUE(*written);
}

TEST_F(SpoolTest, UnwrittenBytesCountUntilWrittenIsCalled) {
  start();
  const auto spool = spools_->open();
  std::vector<std::size_t> rest;
  const auto note = [&](bool) { rest.push_back(spool->unwritten()); };
  for (const std::size_t size : {100u, 200'000u, 3u})
    ASSERT_TRUE(spool->write(message(size), note));
  EXPECT_EQ(spool->unwritten(), 200'103u);
  ASSERT_TRUE(run_until([&] { return rest.size() == 3; }));
  EXPECT_EQ(rest, (std::vector<std::size_t>{200'003, 3, 0}));
}

// The relay's budget for messages in memory is used on the loop's thread only.
TEST_F(SpoolTest, MessagesAreGivenUpOnTheLoopBeforeWrittenIsCalled) {
  start();
  std::vector<std::thread::id> ends;
  const auto watched = [&](std::size_t size) {
    const auto end = [&ends](const Bytes* bytes) {
      ends.push_back(std::this_thread::get_id());
      delete bytes;
    };
    return Message(new Bytes(size), end);
  };
  auto spool = spools_->open();
  std::vector<std::size_t> ended;
  for (int i = 0; i < 100; ++i)
    ASSERT_TRUE(spool->write(watched(1000), [&](bool) { ended.push_back(ends.size()); }));
  ASSERT_TRUE(run_until([&] { return ended.size() == 100; }));
  for (std::size_t i = 0; i < ended.size(); ++i)
    EXPECT_EQ(ended[i], i + 1);
  for (int i = 0; i < 100; ++i)
    ASSERT_TRUE(spool->write(watched(100'000), ignore));
  spool.reset();
  settle();
  EXPECT_EQ(ends.size(), 200u);
  EXPECT_EQ(std::ranges::count(ends, std::this_thread::get_id()), 200);
}

TEST_F(SpoolTest, RoomIsCountedInSlots) {
  start();
  const auto spool = spools_->open();
  std::uint64_t slots = 0;
  for (const auto& [size, needed] : {std::pair{std::size_t{0}, 1u},
                                     {kOneSlot, 1u},
                                     {kOneSlot + 1, 2u},
                                     {kOneSlot + kSlotBytes, 2u},
                                     {kOneSlot + kSlotBytes + 1, 3u}}) {
    ASSERT_TRUE(spool->write(message(size), ignore));
    slots += needed;
    EXPECT_EQ(spool->used(), slots * kSlotBytes) << size;
    EXPECT_EQ(spools_->used(), slots * kSlotBytes) << size;
  }
}

TEST_F(SpoolTest, SessionGetsNoMoreThanItsLimitUntilItReleases) {
  start({.session = 4 * kSlotBytes, .all = 100 * kSlotBytes});
  const auto spool = spools_->open();
  EXPECT_FALSE(spool->write(message(kOneSlot + 4 * kSlotBytes), ignore));
  const auto first = spool->write(message(kOneSlot), ignore);
  EXPECT_FALSE(spool->write(message(kOneSlot + 3 * kSlotBytes), ignore));
  ASSERT_TRUE(spool->write(message(kOneSlot + 2 * kSlotBytes), ignore));
  EXPECT_FALSE(spool->write(message(0), [](bool) { FAIL() << "called although there is no room"; }));
  EXPECT_TRUE(spools_->open()->write(message(0), ignore)) << "another session has its own limit";
  spool->release(*first);
  EXPECT_EQ(spool->used(), 3 * kSlotBytes);
  EXPECT_TRUE(spool->write(message(kOneSlot), ignore));
  EXPECT_FALSE(spool->write(message(0), ignore));
  settle();
}

TEST_F(SpoolTest, SessionLeavesAsMuchRoomAsItUses) {
  start({.session = 100 * kSlotBytes, .all = 8 * kSlotBytes});
  const auto first = spools_->open();
  auto second = spools_->open();
  const auto third = spools_->open();
  EXPECT_FALSE(first->write(message(kOneSlot + 4 * kSlotBytes), ignore));
  for (int i = 0; i < 4; ++i)
    ASSERT_TRUE(first->write(message(kOneSlot), ignore));
  EXPECT_FALSE(first->write(message(0), ignore));
  EXPECT_FALSE(second->write(message(kOneSlot + 2 * kSlotBytes), ignore));
  ASSERT_TRUE(second->write(message(kOneSlot + kSlotBytes), ignore));
  EXPECT_FALSE(second->write(message(0), ignore));
  ASSERT_TRUE(third->write(message(0), ignore));
  EXPECT_FALSE(third->write(message(0), ignore));
  EXPECT_EQ(spools_->used(), 7 * kSlotBytes);
  second.reset();
  EXPECT_EQ(spools_->used(), 5 * kSlotBytes) << "the end of a spool gives its room back";
  EXPECT_TRUE(third->write(message(0), ignore));
}

TEST_F(SpoolTest, LimitSmallerThanASlotLeavesNoRoom) {
  start({.session = kSlotBytes, .all = kSlotBytes - 1});
  EXPECT_FALSE(spools_->open()->write(message(0), ignore));
}

TEST_F(SpoolTest, EndedSpoolCallsNothing) {
  start();
  const auto fail = [](bool) { FAIL() << "called after the end"; };
  // One spool's callbacks wait for the loop, the other's jobs for the disk.
  auto ready = spools_->open();
  for (int i = 0; i < 3; ++i)
    ASSERT_TRUE(ready->write(message(kOneSlot), fail));
  const std::string file = [&] {
    EXPECT_TRUE(vantelink_test::eventually([&] { return open_files().size() == 1; }));
    return open_file();
  }();
  ASSERT_TRUE(vantelink_test::eventually([&] { return status(file).st_size == 3 * kSlotBytes; }));
  auto waiting = spools_->open();
  for (int i = 0; i < 100; ++i) {
    const auto place = waiting->write(message(300'000), fail);
    waiting->read(*place, [](const Message&) { FAIL() << "called after the end"; });
  }
  ready.reset();
  waiting.reset();
  EXPECT_EQ(spools_->used(), 0u);
  settle();
  EXPECT_TRUE(open_files().empty());
}

// Writing so much takes seconds, so most messages still wait for the disk when the spool ends.
TEST_F(SpoolTest, EndedSpoolGivesUpTheMessagesThatWaitForTheDisk) {
  start();
  const auto bytes = std::make_shared<const Bytes>(8u << 20);
  std::vector<std::weak_ptr<int>> owners;
  auto spool = spools_->open();
  for (int i = 0; i < 200; ++i) {
    const auto owner = std::make_shared<int>(i);
    owners.push_back(owner);
    ASSERT_TRUE(spool->write(Message(owner, bytes.get()), ignore));
  }
  spool.reset();
  EXPECT_GT(std::ranges::count_if(owners, [](const auto& owner) { return owner.expired(); }), 100);
  settle();
}

TEST_F(SpoolTest, EndOfAllSpoolsCallsNothingAndStopsAtOnce) {
  start();
  auto spool = spools_->open();
  for (int i = 0; i < 100; ++i)
    ASSERT_TRUE(spool->write(message(300'000), [](bool) { FAIL() << "called after the end"; }));
  spool.reset();
  spools_.reset();
  EXPECT_TRUE(open_files().empty());
  loop_.poll();
}

TEST_F(SpoolTest, CallbackMayEndItsSpoolAndAllSpools) {
  start();
  auto spool = spools_->open();
  bool ended = false;
  const auto end = [&, kept = std::make_shared<int>(7)](bool) {
    spool.reset();
    spools_.reset();
    ended = *kept == 7;
  };
  ASSERT_TRUE(spool->write(message(10), end));
  ASSERT_TRUE(spool->write(message(10), [](bool) { FAIL() << "called after the end"; }));
  ASSERT_TRUE(run_until([&] { return ended; }));
  loop_.poll();
}

TEST_F(SpoolTest, CallbackThatThrowsLosesNoOther) {
  start();
  const auto spool = spools_->open();
  int calls = 0;
  const auto call = [&](bool) {
    if (++calls == 1) throw std::runtime_error("the callback's own error");
  };
  ASSERT_TRUE(spool->write(message(10), call));
  ASSERT_TRUE(spool->write(message(10), call));
  EXPECT_THROW(static_cast<void>(run_until([&] { return calls == 1; })), std::runtime_error);
  EXPECT_TRUE(run_until([&] { return calls == 2; }));
}

}  // namespace
}  // namespace vlk::relay
