// Downloads and uploads of real files.
#include "transfer/file_transfer.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include <gtest/gtest.h>

#include "support/peers/scripted_server.h"
#include "support/temp_folder.h"
#include "wire/big_endian.h"

namespace vlk::agent {
namespace {

using vantelink_test::kPatience;
using vantelink_test::TempFolder;

struct Sent {
  Msg type{};
  std::uint32_t session = 0;
  std::string payload;
  std::uint8_t flags = 0;
};

// Records the messages of downloads. Its state is shared with the downloads' threads, which may still run
// when the test has seen the last message.
class Outbox {
 public:
  // From message number `fail_from` on, every send fails.
  explicit Outbox(std::size_t fail_from = ~std::size_t{0}) : state_(std::make_shared<State>()) {
    state_->fail_from = fail_from;
  }

  SendCallable callable() const {
    return [state = state_](Msg type, unsigned int session, const unsigned char* data, std::size_t size,
                            unsigned char flags) {
      const std::lock_guard<std::mutex> guard(state->lock);
      const bool taken = state->messages.size() < state->fail_from;
      state->messages.push_back({type, session, {reinterpret_cast<const char*>(data), size}, flags});
      state->changed.notify_all();
      return taken;
    };
  }

  // Waits until at least `ends` messages FileTransferEnd were sent. Returns all messages sent so far.
  std::vector<Sent> wait_for_ends(std::size_t ends = 1) const {
    std::unique_lock<std::mutex> guard(state_->lock);
    EXPECT_TRUE(state_->changed.wait_for(guard, kPatience, [&] {
      return static_cast<std::size_t>(std::count_if(
                 state_->messages.begin(), state_->messages.end(),
                 [](const Sent& message) { return message.type == Msg::FileTransferEnd; })) >= ends;
    }));
    return state_->messages;
  }
  std::size_t wait_for_messages(std::size_t count) const {
    std::unique_lock<std::mutex> guard(state_->lock);
    state_->changed.wait_for(guard, kPatience, [&] { return state_->messages.size() >= count; });
    return state_->messages.size();
  }
  // Whether the threads have released the callable.
  bool released() const { return state_.use_count() == 1; }

 private:
  struct State {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<Sent> messages;
    std::size_t fail_from = 0;
  };
  std::shared_ptr<State> state_;
};

std::string pattern(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 1;
  for (char& byte : bytes)
    byte = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
  return bytes;
}

std::uint32_t u32_at(const std::string& bytes, std::size_t offset) {
  return get_u32_be(reinterpret_cast<const unsigned char*>(bytes.data()) + offset);
}

void put(std::uint32_t transfer_id, const std::string& bytes) {
  WriteUploadChunk(transfer_id, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

// The number of files that this process has open.
std::size_t open_files() {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Downloads a file of this size and checks the messages. Returns the number of file bytes in each chunk.
std::vector<std::size_t> download_of(std::size_t size) {
  const TempFolder folder;
  const std::string bytes = pattern(size);
  folder.write("file", bytes);
  const Outbox outbox;
  StartDownload(9, 0xFEDCBA98, folder.windows_path("file"), outbox.callable());
  std::vector<std::size_t> sizes;
  std::string received;
  const std::vector<Sent> messages = outbox.wait_for_ends();
  for (const Sent& message : messages) {
    EXPECT_EQ(message.session, 9u);
    if (message.type == Msg::FileTransferEnd) {
      EXPECT_EQ(&message, &messages.back());
      EXPECT_EQ(message.payload, R"({"transfer_id":4275878552,"ok":true})");
      EXPECT_EQ(message.flags, 1);
      continue;
    }
    EXPECT_EQ(message.type, Msg::FileChunk);
    EXPECT_EQ(message.flags, 0);
    EXPECT_EQ(u32_at(message.payload, 0), 0xFEDCBA98u);
    EXPECT_EQ(u32_at(message.payload, 4), sizes.size());
    received += message.payload.substr(8);
    sizes.push_back(message.payload.size() - 8);
  }
  EXPECT_TRUE(received == bytes);
  return sizes;
}

TEST(Download, IsSentInChunksThatAreNeverEmpty) {
  using Sizes = std::vector<std::size_t>;
  EXPECT_EQ(download_of(0), Sizes());
  EXPECT_EQ(download_of(1), Sizes({1}));
  EXPECT_EQ(download_of(262143), Sizes({262143}));
  EXPECT_EQ(download_of(262144), Sizes({262144}));
  EXPECT_EQ(download_of(262145), Sizes({262144, 1}));
  EXPECT_EQ(download_of(524288), Sizes({262144, 262144}));
  EXPECT_EQ(download_of(3'000'000).size(), 12u);
}

TEST(Download, OfAPathThatCannotBeOpenedEndsWithTheErrorText) {
  const TempFolder folder;
  for (const std::string& path : {folder.windows_path("missing"), std::string(),
                                  std::string("\xFF\xFE\\\x80"), std::string(100'000, 'x')}) {
    const Outbox outbox;
    StartDownload(3, 7, path, outbox.callable());
    const std::vector<Sent> messages = outbox.wait_for_ends();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].payload, R"({"transfer_id":7,"ok":false,"error":"cannot open"})");
    EXPECT_EQ(messages[0].session, 3u);
    EXPECT_EQ(messages[0].flags, 1);
  }
}

TEST(Download, ReportsAFailureToReadAsTheEndOfTheFile) {
  // On this host a folder can be opened for reading but not read.
  const TempFolder folder;
  const Outbox outbox;
  StartDownload(3, 7, folder.windows_path(), outbox.callable());
  EXPECT_EQ(outbox.wait_for_ends().at(0).payload, R"({"transfer_id":7,"ok":true})");
}

TEST(Download, StopsSilentlyWhenTheConnectionHasEnded) {
  const TempFolder folder;
  folder.write("file", pattern(10 * kChunkSize));
  for (std::size_t fail_from = 0; fail_from < 10; ++fail_from) {
    const Outbox outbox(fail_from);
    StartDownload(3, 7, folder.windows_path("file"), outbox.callable());
    outbox.wait_for_messages(fail_from + 1);
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (!outbox.released() && std::chrono::steady_clock::now() < deadline)
      std::this_thread::yield();
    ASSERT_TRUE(outbox.released()) << "the thread has ended";
    EXPECT_EQ(outbox.wait_for_messages(fail_from + 1), fail_from + 1);
  }
}

TEST(Download, IsNotAffectedByAnUploadWithTheSameId) {
  const TempFolder folder;
  folder.write("file", pattern(5 * kChunkSize));
  const Outbox outbox;
  StartDownload(3, 7, folder.windows_path("file"), outbox.callable());
  EndUpload(7);
  EXPECT_EQ(outbox.wait_for_ends().size(), 6u);
}

TEST(Download, FiftyConcurrentDownloadsDoNotMix) {
  const TempFolder folder;
  for (std::uint32_t i = 0; i < 50; ++i)
    folder.write(std::to_string(i), std::string(kChunkSize + i, static_cast<char>(i)));
  const Outbox outbox;
  for (std::uint32_t i = 0; i < 50; ++i)
    StartDownload(1, i, folder.windows_path(std::to_string(i)), outbox.callable());
  std::vector<std::string> received(50);
  for (const Sent& message : outbox.wait_for_ends(50)) {
    if (message.type == Msg::FileChunk) received.at(u32_at(message.payload, 0)) += message.payload.substr(8);
  }
  for (std::uint32_t i = 0; i < 50; ++i)
    EXPECT_TRUE(received[i] == folder.read(std::to_string(i))) << i;
}

TEST(Upload, CreatesTheFoldersAboveTheFile) {
  const TempFolder folder;
  BeginUpload(1, folder.windows_path("new\\sub\\f.txt"), 3);
  put(1, "abc");
  EndUpload(1);
  EXPECT_EQ(folder.read("new/sub/f.txt"), "abc");
}

TEST(Upload, KeepsNewFoldersIfTheFileCannotBeOpened) {
  const TempFolder folder;
  BeginUpload(1, folder.windows_path("new\\folder\\"), 3);
  put(1, "abc");
  EndUpload(1);
  EXPECT_TRUE(std::filesystem::is_directory(folder.path() / "new/folder"))
      << "the last part of a path that ends in a backslash is created too";
  EXPECT_TRUE(std::filesystem::is_empty(folder.path() / "new/folder"));
}

TEST(Upload, DoesNotCreateFoldersForForwardSlashes) {
  const TempFolder folder;
  BeginUpload(1, folder.path().string() + "/new/f.txt", 3);
  put(1, "abc");
  EndUpload(1);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "new"));
}

TEST(Upload, CreatesFoldersOnlyAfterTheThirdCharacterOfThePath) {
  const TempFolder folder;
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  for (const wchar_t* path : {L"", L"a\\b", L"ab\\", L"ab\\c", L"abc\\", L"de\\f\\g", L"hijk\\"})
    EnsureParentDirectories(path);
  std::filesystem::current_path(before);
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "a"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "ab"));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "abc"));
  EXPECT_FALSE(std::filesystem::exists(folder.path() / "de"))
      << "the folder de\\f cannot be created either, because de does not exist";
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "hijk"));
}

TEST(Upload, OverwritesAnExistingFile) {
  const TempFolder folder;
  folder.write("file", "something longer");
  BeginUpload(1, folder.windows_path("file"), 0);
  EXPECT_EQ(folder.read("file"), "") << "the file is emptied at once";
  EndUpload(1);
  EXPECT_EQ(folder.read("file"), "");
}

TEST(Upload, SecondUploadWithTheSameIdReceivesTheChunks) {
  const TempFolder folder;
  BeginUpload(1, folder.windows_path("first"), 0);
  put(1, "one");
  BeginUpload(1, folder.windows_path("second"), 0);
  put(1, "two");
  EndUpload(1);
  put(1, "lost");
  EXPECT_EQ(folder.read("second"), "two");
  // The first file is still open, so its bytes stay in the buffer until the process ends.
  EXPECT_EQ(folder.read("first"), "");
}

TEST(Upload, IgnoresTheAnnouncedSize) {
  const TempFolder folder;
  for (const std::int64_t size :
       {std::int64_t{10}, std::int64_t{0}, std::int64_t{-1}, INT64_MAX, INT64_MIN}) {
    BeginUpload(1, folder.windows_path("file"), size);
    put(1, std::string(12, 'a'));
    put(1, std::string(8, 'b'));
    EndUpload(1);
    EXPECT_EQ(folder.read("file"), "aaaaaaaaaaaabbbbbbbb");
  }
}

TEST(Upload, MessagesWithUnknownIdsAreIgnored) {
  const TempFolder folder;
  put(4, "x");
  EndUpload(4);
  BeginUpload(4, folder.windows_path("file"), 0);
  put(5, "other");
  EndUpload(5);
  put(4, "");
  put(4, "mine");
  EndUpload(4);
  EndUpload(4);
  EXPECT_EQ(folder.read("file"), "mine");
}

TEST(Upload, InvalidPathsOpenNoFile) {
  for (const std::string& path : {std::string(), std::string("\\"), std::string("C:\\"),
                                  std::string(100'000, 'x'), std::string("\0\0\0\0\0", 5)}) {
    const std::size_t before = open_files();
    BeginUpload(6, path, 0);
    EXPECT_EQ(open_files(), before) << path.size();
    put(6, "x");
    EndUpload(6);
  }
}

TEST(Upload, IgnoresAFullDisk) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
  const std::size_t before = open_files();
  BeginUpload(1, "C:\\dev\\full", 0);
  put(1, std::string(1 << 20, 'x'));
  put(1, "y");
  EXPECT_EQ(open_files(), before + 1) << "the transfer continues";
  EndUpload(1);
  EXPECT_EQ(open_files(), before);
}

}  // namespace
}  // namespace vlk::agent
