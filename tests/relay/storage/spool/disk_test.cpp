// The spool's folder and files: what is on the disk, what is not, and what happens when the disk fails.
#include <fcntl.h>
#include <sys/resource.h>

#include <csignal>
#include <future>
#include <new>
#include <stdexcept>

#include "relay/storage/spool/spool_fixture.h"

namespace vlk::relay {
namespace {

namespace fs = std::filesystem;

// Lowers one of the process's limits while it exists.
class LowLimit {
 public:
  LowLimit(int kind, rlim_t most) : kind_(kind) {
    ::getrlimit(resource(), &usual_);
    const rlimit low{most, usual_.rlim_max};
    ::setrlimit(resource(), &low);
  }
  ~LowLimit() { ::setrlimit(resource(), &usual_); }
  LowLimit(const LowLimit&) = delete;
  LowLimit& operator=(const LowLimit&) = delete;

 private:
  [[nodiscard]] __rlimit_resource resource() const { return static_cast<__rlimit_resource>(kind_); }

  const int kind_;
  rlimit usual_{};
};

class SpoolDiskTest : public SpoolTest {
 protected:
  // What the constructor says about the folder.
  std::string refusal(const fs::path& folder) {
    try {
      const Spools refused(folder, loop_.get_executor(), {});
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return "nothing";
  }
};

TEST_F(SpoolDiskTest, FolderIsMadeForItsOwnerAloneAndStaysEmpty) {
  start();
  EXPECT_EQ(status(folder_.string()).st_mode & 07777, 0700u);
  EXPECT_TRUE(open_files().empty());
  const auto spool = spools_->open();
  settle();
  EXPECT_TRUE(open_files().empty()) << "there is no file before the first write";
  stored(*spool, message(100'000));
  EXPECT_TRUE(fs::is_empty(folder_));
  const std::string file = open_file();
  EXPECT_EQ(status(file).st_mode & 07777, 0600u);
  EXPECT_EQ(status(file).st_nlink, 0u);
  const int descriptor = std::stoi(fs::path(file).filename());
  EXPECT_NE(::fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(SpoolDiskTest, LeftoversAreRemovedAtTheStartAndOtherFilesAreNot) {
  fs::create_directory(folder_);
  fs::create_directory(folder_ / "spool-folder");
  for (const char* name : {"spool-abc", "spool-", "notes.txt"})
    std::ofstream(folder_ / name) << "content";
  start();
  EXPECT_FALSE(fs::exists(folder_ / "spool-abc"));
  EXPECT_FALSE(fs::exists(folder_ / "spool-"));
  EXPECT_TRUE(fs::exists(folder_ / "spool-folder"));
  EXPECT_TRUE(fs::exists(folder_ / "notes.txt"));
}

TEST_F(SpoolDiskTest, UnusableFolderIsRefusedWithASentence) {
  const fs::path missing = temporary_.path() / "missing" / "spool";
  const std::string no_parent = refusal(missing);
  EXPECT_NE(no_parent.find("cannot make the spool folder " + missing.string()), std::string::npos)
      << no_parent;
  EXPECT_NE(no_parent.find("choose another folder"), std::string::npos) << no_parent;
  temporary_.write("file", "content");
  const std::string file = refusal(temporary_.path() / "file");
  EXPECT_NE(file.find("it is not a folder; choose"), std::string::npos) << file;
  const LowLimit no_files(RLIMIT_NOFILE, 0);
  const std::string unreadable = refusal(temporary_.path());
  EXPECT_NE(unreadable.find("spool folder " + temporary_.path().string()), std::string::npos) << unreadable;
}

TEST_F(SpoolDiskTest, PlainTextIsNotInTheFile) {
  start();
  const auto spool = spools_->open();
  const std::string text = "the content of a secret document ";
  Bytes bytes;
  for (int i = 0; i < 10'000; ++i)
    bytes.insert(bytes.end(), text.begin(), text.end());
  const auto sent = std::make_shared<const Bytes>(bytes);
  const auto place = stored(*spool, sent);
  const std::string raw = content(open_file());
  EXPECT_GE(raw.size(), bytes.size() + kSealBytes);
  EXPECT_EQ(raw.find("secret"), std::string::npos);
  EXPECT_TRUE(holds(*spool, place, sent));
}

TEST_F(SpoolDiskTest, SameMessageIsSealedDifferentlyEachTime) {
  start();
  const auto spool = spools_->open();
  stored(*spool, message(1000));
  stored(*spool, message(1000));
  const std::string raw = content(open_file());
  EXPECT_NE(raw.substr(0, 1000), raw.substr(kSlotBytes, 1000)) << "the nonces are the same";
  const auto other = spools_->open();
  stored(*other, message(1000));
  const auto files = open_files();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_NE(content(files[0]).substr(0, 1000), content(files[1]).substr(0, 1000)) << "the keys are the same";
}

TEST_F(SpoolDiskTest, ChangedByteGivesNull) {
  start();
  const auto spool = spools_->open();
  const std::size_t size = 2 * kSlotBytes + 1000;
  const auto place = stored(*spool, message(size));
  const std::string file = open_file();
  const std::string raw = content(file);
  ASSERT_EQ(raw.size(), size + kSealBytes);
  for (const std::size_t at :
       {std::size_t{0}, std::size_t{kSlotBytes}, size - 1, size, size + kSealBytes - 1}) {
    overwrite(file, at, {static_cast<char>(raw[at] ^ 1)});
    EXPECT_EQ(fetch(*spool, place), nullptr) << at;
    overwrite(file, at, {raw[at]});
  }
  EXPECT_TRUE(holds(*spool, place, message(size)));
  fs::resize_file(file, size);
  EXPECT_EQ(fetch(*spool, place), nullptr) << "the file is too short";
}

TEST_F(SpoolDiskTest, ExchangedOrOlderMessagesGiveNull) {
  start();
  const auto spool = spools_->open();
  const auto first = stored(*spool, message(1000, 1));
  const auto second = stored(*spool, message(1000, 2));
  const std::string file = open_file();
  const std::string raw = content(file);
  overwrite(file, 0, raw.substr(kSlotBytes, 1000 + kSealBytes));
  overwrite(file, kSlotBytes, raw.substr(0, 1000 + kSealBytes));
  EXPECT_EQ(fetch(*spool, first), nullptr);
  EXPECT_EQ(fetch(*spool, second), nullptr);
  spool->release(first);
  const auto third = stored(*spool, message(1000, 3));
  EXPECT_TRUE(holds(*spool, third, message(1000, 3)));
  overwrite(file, 0, raw.substr(0, 1000 + kSealBytes));
  EXPECT_EQ(fetch(*spool, third), nullptr) << "the slot has its former message again";
}

TEST_F(SpoolDiskTest, FileShrinksWhenItsEndIsFree) {
  start();
  const auto spool = spools_->open();
  std::vector<Spool::Place> places;
  for (int i = 0; i < 5; ++i)
    places.push_back(stored(*spool, message(2 * kSlotBytes - kSealBytes)));
  const std::string file = open_file();
  EXPECT_EQ(status(file).st_size, 10 * kSlotBytes);
  spool->release(places[3]);
  settle();
  EXPECT_EQ(status(file).st_size, 10 * kSlotBytes);
  spool->release(places[4]);
  settle();
  EXPECT_EQ(status(file).st_size, 6 * kSlotBytes);
  for (std::size_t i = 0; i < 3; ++i)
    EXPECT_TRUE(holds(*spool, places[i], message(2 * kSlotBytes - kSealBytes)));
  for (std::size_t i = 0; i < 3; ++i)
    spool->release(places[i]);
  settle();
  EXPECT_EQ(status(file).st_size, 0);
  EXPECT_TRUE(holds(*spool, stored(*spool, message(9)), message(9)));
}

TEST_F(SpoolDiskTest, SpaceWithinTheFileIsGivenBackAndUsedAgain) {
  start();
  const auto spool = spools_->open();
  std::vector<Spool::Place> places;
  for (int i = 0; i < 16; ++i)
    places.push_back(stored(*spool, message(2 * kSlotBytes - kSealBytes)));
  const std::string file = open_file();
  EXPECT_GE(status(file).st_blocks * 512, 32 * kSlotBytes);
  for (std::size_t i = 0; i < 15; i += 2)
    spool->release(places[i]);
  settle();
  EXPECT_LE(status(file).st_blocks * 512, 17 * kSlotBytes);
  // The slots of this message are not neighbours.
  const auto place = stored(*spool, message(9 * kSlotBytes, 4));
  EXPECT_EQ(status(file).st_size, 32 * kSlotBytes);
  EXPECT_TRUE(holds(*spool, place, message(9 * kSlotBytes, 4)));
  for (std::size_t i = 1; i < 16; i += 2)
    EXPECT_TRUE(holds(*spool, places[i], message(2 * kSlotBytes - kSealBytes))) << i;
}

TEST_F(SpoolDiskTest, EndOfASpoolClosesItsFile) {
  start();
  auto spool = spools_->open();
  stored(*spool, message(100));
  spool.reset();
  settle();
  EXPECT_TRUE(open_files().empty());
}

TEST_F(SpoolDiskTest, FullDiskFailsTheWritesThatDoNotFitAndNoOther) {
  start();
  const auto spool = spools_->open();
  const auto kept = stored(*spool, message(100'000, 1));
  Spool::Place failed = 0;
  const auto usual = std::signal(SIGXFSZ, SIG_IGN);
  {
    const LowLimit full(RLIMIT_FSIZE, 3 * kSlotBytes);
    EXPECT_FALSE(store(*spool, message(2 * kSlotBytes), &failed));
    EXPECT_EQ(fetch(*spool, failed), nullptr);
    EXPECT_TRUE(holds(*spool, kept, message(100'000, 1)));
    EXPECT_EQ(spool->used(), 5 * kSlotBytes) << "the room is taken until the place is released";
    EXPECT_EQ(spool->unwritten(), 0u);
    spool->release(failed);
    EXPECT_TRUE(holds(*spool, stored(*spool, message(100)), message(100)));
  }
  std::signal(SIGXFSZ, usual);
  EXPECT_TRUE(holds(*spool, stored(*spool, message(2 * kSlotBytes)), message(2 * kSlotBytes)));
}

TEST_F(SpoolDiskTest, WriteThatWouldTakeOfWhatStaysFreeFails) {
  start({.free = std::uint64_t{1} << 60});
  const auto spool = spools_->open();
  EXPECT_FALSE(store(*spool, message(100)));
  EXPECT_EQ(status(open_file()).st_size, 0);
}

TEST_F(SpoolDiskTest, WriteFailsWhileNoFileCanBeMade) {
  start();
  const auto spool = spools_->open();
  fs::remove(folder_);
  Spool::Place place = 0;
  EXPECT_FALSE(store(*spool, message(5), &place));
  EXPECT_EQ(fetch(*spool, place), nullptr);
  fs::create_directory(folder_);
  EXPECT_TRUE(store(*spool, message(5)));
  EXPECT_EQ(fetch(*spool, place), nullptr);
}

TEST_F(SpoolDiskTest, JobThatThrowsIsFinishedAndTheNextOneRuns) {
  DiskThread disk(loop_.get_executor());
  std::string ends;
  disk.enqueue({nullptr, [] { throw std::bad_alloc(); }, [&] { ends += 'a'; }});
  disk.enqueue({nullptr, [] {}, [&] { ends += 'b'; }});
  EXPECT_TRUE(run_until([&] { return ends == "ab"; }));
}

TEST_F(SpoolDiskTest, DroppedJobsAreThoseOfTheOwnerThatHaveNotBegun) {
  DiskThread disk(loop_.get_executor());
  const int owner = 0;
  std::promise<void> begun;
  std::promise<void> end;
  std::string ran;
  std::string ends;
  const auto hold = [&] {
    begun.set_value();
    end.get_future().wait();
  };
  disk.enqueue({&owner, hold, [&] { ends += 'a'; }});
  disk.enqueue({&owner, [&] { ran += 'b'; }, [&] { ends += 'b'; }});
  disk.enqueue({&ends, [&] { ran += 'c'; }, [&] { ends += 'c'; }});
  disk.enqueue({&owner, [&] { ran += 'd'; }, nullptr});
  begun.get_future().wait();
  disk.drop(&owner);
  end.set_value();
  EXPECT_TRUE(run_until([&] { return ends == "ac"; }));
  EXPECT_EQ(ran, "c");
}

}  // namespace
}  // namespace vlk::relay
