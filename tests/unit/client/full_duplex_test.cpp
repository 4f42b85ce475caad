// A connection that is busy in both directions: a stream and eight downloads go out while the server sends
// without pause, changes the keys and issues session tickets.
#include <map>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "support/peers/file_requests.h"
#include "support/temp_folder.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kDownloads = 8;
constexpr std::size_t kFile = 3'000'000;  // bytes
constexpr std::size_t kChunkHeader = 8;   // bytes: transfer and index
constexpr std::size_t kPicture = 20'000;  // bytes

char letter(std::uint32_t transfer) {
  return static_cast<char>('a' + transfer);
}

class FullDuplexTest : public OnlineTest, protected vantelink_test::FileRequests {
 protected:
  FullDuplexTest() : FileRequests(peer_) {}

  void take(const Envelope& message) {
    const auto type = static_cast<Msg>(message.type);
    if (type == Msg::FileChunk) {
      take_chunk(text_of(message));
    } else if (type == Msg::FileTransferEnd) {
      ends_.insert(text_of(message));
    } else if (type == Msg::StreamFrame) {
      const std::string frame = text_of(message);
      ASSERT_GE(frame.size(), kPicture);
      EXPECT_EQ(frame.substr(frame.size() - kPicture), std::string(kPicture, 'P'));
      ++frames_;
    } else if (type == Msg::Heartbeat) {
      EXPECT_EQ(text_of(message), "beat " + std::to_string(echoes_++));
    }
  }

  void take_chunk(const std::string& chunk) {
    ASSERT_GT(chunk.size(), kChunkHeader);
    const std::uint32_t transfer = static_cast<unsigned char>(chunk[3]);
    const std::string body = chunk.substr(kChunkHeader);
    EXPECT_EQ(body.find_first_not_of(letter(transfer)), std::string::npos);
    EXPECT_EQ(static_cast<unsigned char>(chunk[7]), chunks_[transfer]++) << "of transfer " << transfer;
    bytes_[transfer] += body.size();
  }

  const vantelink_test::TempFolder folder_;
  std::map<std::uint32_t, std::size_t> bytes_, chunks_;  // by transfer
  std::set<std::string> ends_;
  int frames_ = 0, echoes_ = 0;
};

TEST_F(FullDuplexTest, EverythingArrivesWhileTheServerSendsUpdatesKeysAndIssuesTickets) {
  vantelink_fakes::script().jpeg = [] { return std::vector<std::uint8_t>(kPicture, 'P'); };
  for (std::uint32_t transfer = 1; transfer <= kDownloads; ++transfer)
    folder_.write("file" + std::to_string(transfer), std::string(kFile, letter(transfer)));
  peer_->send_envelope(Msg::StreamStart, kSession, R"({"max_fps":1000,"codec":"mjpeg"})");
  for (std::uint32_t transfer = 1; transfer <= kDownloads; ++transfer)
    ask(Msg::DownloadRequest, folder_.windows_path("file" + std::to_string(transfer)), transfer);

  // Chunks of unknown uploads change nothing and are not answered, so the client can read without end.
  const std::string ignored(2000, 'x');
  int beats = 0, updates = 0, tickets = 0;
  for (int turn = 0; ends_.size() < kDownloads || frames_ < 20 || echoes_ < beats; ++turn) {
    ASSERT_LT(turn, 1'000'000);
    for (std::uint32_t i = 0; i < 4; ++i)
      chunk(1000 + i, ignored);
    if (turn % 10 == 0 && ends_.size() < kDownloads)
      peer_->send_envelope(Msg::Heartbeat, 0, "beat " + std::to_string(beats++));
    if (turn % 5 == 0) updates += static_cast<int>(peer_->update_keys());
    if (turn % 7 == 0) tickets += static_cast<int>(peer_->issue_ticket());
    take(peer_->read_envelope());
    peer_->forget_received();
  }
  for (std::uint32_t transfer = 1; transfer <= kDownloads; ++transfer) {
    EXPECT_EQ(bytes_[transfer], kFile);
    EXPECT_TRUE(ends_.contains(R"({"transfer_id":)" + std::to_string(transfer) + R"(,"ok":true})"));
  }
  EXPECT_GT(updates, 10);
  EXPECT_GT(tickets, 10);
  peer_->send_envelope(Msg::StreamStop, kSession, "");
}

}  // namespace
}  // namespace vlk::agent
