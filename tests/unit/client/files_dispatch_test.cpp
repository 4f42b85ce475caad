// Listings, downloads and uploads of real files, requested by the server.
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "support/peers/file_requests.h"
#include "support/temp_folder.h"
#include "unit/client/system_calls_seam.h"
#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

using vantelink_test::FileRequests;
using vantelink_test::TempFolder;
using vantelink_test::threads;

constexpr std::size_t kChunk = 262144;

class FilesDispatchTest : public OnlineTest, protected FileRequests {
 protected:
  FilesDispatchTest() : FileRequests(peer_) {}

  const TempFolder folder_;
};

TEST_F(FilesDispatchTest, ListingIsSentWithTheSessionNumberOfItsRequest) {
  folder_.write("file", "12345");
  ask(Msg::DirListRequest, folder_.windows_path());
  const Envelope listing = peer_->read_until(Msg::DirListResult);
  EXPECT_EQ(listing.session_id, 12u);
  EXPECT_EQ(listing.flags, 1);
  EXPECT_EQ(read_string(text_of(listing), "path").value, folder_.windows_path());
  EXPECT_NE(text_of(listing).find(R"("name":"file")"), std::string::npos);
  peer_->send_envelope(Msg::DirListRequest, 13, "");
  const Envelope drives = peer_->read_until(Msg::DirListResult);
  EXPECT_EQ(drives.session_id, 13u);
  EXPECT_EQ(text_of(drives).rfind(R"({"path":"","parent":"","entries":[{"name":"C:")", 0), 0u);
}

TEST_F(FilesDispatchTest, DownloadIsSentWithTheSessionNumberOfItsRequest) {
  folder_.write("file", std::string(kChunk + 1, 'd'));
  ask(Msg::DownloadRequest, folder_.windows_path("file"), 0x1'0000'0005);
  const Envelope first = peer_->read_envelope();
  EXPECT_EQ(first.type, 100);
  EXPECT_EQ(first.session_id, 12u);
  EXPECT_EQ(first.flags, 0);
  EXPECT_EQ(first.payload.size(), kChunk + 8);
  EXPECT_EQ(text_of(peer_->read_envelope()), std::string("\0\0\0\5\0\0\0\1d", 9));
  const Envelope last = peer_->read_envelope();
  EXPECT_EQ(last.type, 101);
  EXPECT_EQ(last.session_id, 12u);
  EXPECT_EQ(text_of(last), R"({"transfer_id":5,"ok":true})") << "the lower 32 bits are the transfer id";
}

TEST_F(FilesDispatchTest, DownloadOfAMissingFileFailsWithTheTransferIdOfItsRequest) {
  ask(Msg::DownloadRequest, folder_.windows_path("missing"), -1);
  EXPECT_EQ(text_of(peer_->read_until(Msg::FileTransferEnd)),
            R"({"transfer_id":4294967295,"ok":false,"error":"cannot open"})");
  peer_->send_envelope(Msg::DownloadRequest, 12, "no JSON at all");
  EXPECT_EQ(text_of(peer_->read_until(Msg::FileTransferEnd)),
            R"({"transfer_id":0,"ok":false,"error":"cannot open"})");
}

TEST_F(FilesDispatchTest, EndMessageFromTheServerDoesNotStopADownload) {
  const std::string bytes(40 * kChunk, 'd');
  folder_.write("file", bytes);
  ask(Msg::DownloadRequest, folder_.windows_path("file"), 5);
  peer_->read_until(Msg::FileChunk);
  end(5);
  peer_->read_until(Msg::FileTransferEnd);
  std::size_t received = 0;
  for (const Envelope& one : peer_->received())
    received += one.type == 100 ? one.payload.size() - 8 : 0;
  EXPECT_EQ(received, bytes.size());
}

TEST_F(FilesDispatchTest, DownloadThreadEndsAfterTheClientIsDestroyed) {
  folder_.write("file", std::string(400 * kChunk, 'd'));
  const std::size_t threads_online = threads();  // including the client's threads
  ask(Msg::DownloadRequest, folder_.windows_path("file"), 5);
  peer_->read_until(Msg::FileChunk);
  // The server reads nothing more, so the download's thread fills the socket until its send fails.
  client_.reset();
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (threads() >= threads_online && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  EXPECT_LT(threads(), threads_online) << "the threads of the download and the client have ended";
}

TEST_F(FilesDispatchTest, UploadAppendsChunksInTheOrderOfArrival) {
  ask(Msg::UploadBegin, folder_.windows_path("sub\\file"), 5);
  chunk(5, "one,", 7);
  chunk(5, "", 9);
  chunk(5, "two,", 3);
  chunk(5, "three", 3);
  end(5);
  peer_->settle();
  EXPECT_EQ(folder_.read("sub/file"), "one,two,three");
}

TEST_F(FilesDispatchTest, ChunkOfOnlyAHeaderIsAWriteOfNothing) {
  ask(Msg::UploadBegin, folder_.windows_path("file"), 5);
  peer_->settle();
  std::mutex lock;
  std::vector<std::size_t> writes;
  vantelink_test::SystemCalls calls;
  calls.fwrite = [&](std::size_t size) {
    const std::lock_guard<std::mutex> guard(lock);
    writes.push_back(size);
  };
  {
    const vantelink_test::ReplacedSystemCalls replaced(calls);
    chunk(5, "");
    chunk(5, "end");
    peer_->send_envelope(Msg::FileChunk, kSession, std::string("\0\0\0\5\0\0\0", 7), 0);
    end(5);
    peer_->settle();
    client_.reset();
  }
  EXPECT_EQ(writes, (std::vector<std::size_t>{0, 3}));
  EXPECT_EQ(folder_.read("file"), "end");
}

TEST_F(FilesDispatchTest, UploadContinuesAfterTheClientReconnects) {
  ask(Msg::UploadBegin, folder_.windows_path("file"), 6);
  chunk(6, "before ");
  peer_->settle();
  peer_->close();
  peer_ = server_.accept_upgraded();
  peer_->read_until(Msg::Login);
  chunk(6, "and after");
  end(6);
  peer_->settle();
  EXPECT_EQ(folder_.read("file"), "before and after");
}

TEST_F(FilesDispatchTest, TruncatedMessagesAndMessagesOfUnknownTransfersChangeNothing) {
  ask(Msg::UploadBegin, folder_.windows_path("file"), 0x01020304);
  const std::string whole("\1\2\3\4\0\0\0\0x", 9);
  for (std::size_t size = 0; size < 8; ++size)
    peer_->send_envelope(Msg::FileChunk, 12, whole.substr(0, size), 0);
  chunk(99, "stray");
  end(99);
  peer_->send_envelope(Msg::FileTransferEnd, 12, R"({"transfer_id":"16909060"})");
  const std::string begin = R"({"transfer_id":77,"path":"C:\\nothing\\here")";
  for (std::size_t size = 0; size < begin.size(); ++size) {
    peer_->send_envelope(Msg::UploadBegin, 12, begin.substr(0, size));
    peer_->send_envelope(Msg::DirListRequest, 12, begin.substr(0, size));
  }
  peer_->send_envelope(Msg::FileChunk, 12, whole, 0);
  end(0x01020304);
  peer_->settle();
  EXPECT_EQ(folder_.read("file"), "x");
}

TEST_F(FilesDispatchTest, SizeInAnUploadBeginMessageIsIgnoredWhateverItsValue) {
  for (const char* size : {"18446744073709551615", "-1", "99999999999999999999999", "\"much\"", "{}"}) {
    peer_->send_envelope(Msg::UploadBegin, 12,
                         JsonWriter()
                             .add_raw("size", size)
                             .add_int("transfer_id", 8)
                             .add_string("path", folder_.windows_path("file"))
                             .finish());
    chunk(8, size);
    end(8);
    peer_->settle();
    EXPECT_EQ(folder_.read("file"), size);
  }
}

}  // namespace
}  // namespace vlk::agent
