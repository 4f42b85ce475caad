// The order in which a browser's messages reach its machine while it uploads files, and what becomes of them
// when the session ends.
#include "relay/session/files/machine_lane.h"

#include <algorithm>

#include "relay/net/queue/piece_text.h"
#include "relay/session/files/pieces.h"
#include "relay/session/parts_fixture.h"
#include "relay/session/transfer_bytes.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;

class MachineLaneTest : public PartsTest {
 protected:
  MachineLaneTest() : agent_(log_in("a")), browser_(browse("ada")), session_(accepted(browser_, agent_)) {}

  // Routes and queues a message of the browser, as its connection does.
  Route::Kind send(Msg type, const std::string& payload) {
    Bytes message = envelope_of(type, session_, payload);
    const std::uint64_t size = message.size() - kEnvelopeHeaderSize - kChunkHeader;
    if (type == Msg::FileChunk) parts_->uploads.took(session_, size);
    const Route route = parts_->router.route_from_browser(*browser_, message);
    if (route.kind != Route::Kind::Forward) return route.kind;
    send_to_machine(*route.to, route.header, std::move(message), {}, route.index);
    if (route.ended_upload) parts_->transfers.owe("a", {*route.ended_upload}, Clock::now());
    return route.kind;
  }
  std::uint32_t upload(std::size_t bytes) {
    const std::uint32_t transfer = parts_->transfers.give(session_);
    send(Msg::UploadBegin, Json{{"transfer_id", transfer}, {"path", "a"}, {"size", bytes}}.dump());
    send(Msg::FileChunk, chunk(transfer, std::string(bytes, 'x')));
    return transfer;
  }
  void end(std::uint32_t transfer) { send(Msg::FileTransferEnd, Json{{"transfer_id", transfer}}.dump()); }
  // The types of the messages to the machine, each with the number of its payload's bytes if it is a chunk.
  std::string order() {
    std::string types;
    while (const auto piece = agent_->channel->take()) {
      const auto header = read_header(*piece->message);
      types += (types.empty() ? "" : " ") + std::to_string(static_cast<int>(header->type));
      if (header->type == Msg::FileChunk) types += ":" + std::to_string(chunk_bytes(*piece->message));
      agent_->channel->written(*piece);
    }
    return types;
  }
  void press(char key) { send(Msg::InputEvent, {1, 4, 1, key, 0, 0, 0, 0}); }
  void release(char key) { send(Msg::InputEvent, {1, 4, 0, key, 0, 0, 0, 0}); }
  // The machine returns the heartbeat with this number.
  void echo(std::uint32_t number) {
    if (const auto follows = parts_->machines.heartbeat_echo(*agent_, number, Clock::now()))
      parts_->transfers.settle("a", *follows);
  }
  // The machine's system confirms nothing of what it was sent.
  void lose_line() {
    agent_->channel->on_measure([] { return TcpProgress{1, true}; });
    (void)agent_->channel->line_stall(Clock::now() - limits_.stale_input);
    (void)agent_->channel->line_stall(Clock::now() - limits_.stale_input);
  }

  const Agent agent_;
  const Console browser_;
  const std::uint32_t session_;
};

TEST_F(MachineLaneTest, KeyOvertakesAnUploadWhoseChunkIsCut) {
  const std::uint32_t transfer = upload(2 * kUploadPiece + 5);
  press('A');
  EXPECT_EQ(order(), "86 99 100:32768 100:32768 100:5");
  send(Msg::FileChunk, chunk(transfer, "more", 1));
  const auto piece = agent_->channel->take();
  EXPECT_EQ(text_of(*piece).substr(kEnvelopeHeaderSize), chunk(transfer, "more", 3)) << "chunks are numbered";
}

TEST_F(MachineLaneTest, WhatConcernsUploadedFilesFollowsTheUploads) {
  const std::uint32_t transfer = upload(5);
  end(transfer);
  send(Msg::DirListRequest, R"({"path":"C:\\"})");
  const std::uint32_t download = parts_->transfers.give(session_);
  send(Msg::DownloadRequest, Json{{"transfer_id", download}, {"path", "a"}}.dump());
  send(Msg::ThumbnailRequest, "");
  EXPECT_EQ(order(), "90 99 100:5 101 96 98");
  send(Msg::DirListRequest, R"({"path":"C:\\"})");
  send(Msg::ThumbnailRequest, "");
  EXPECT_EQ(order(), "96 90") << "no upload is queued";
}

TEST_F(MachineLaneTest, EndOfTheSessionDropsUnfinishedUploadsAndFollowsFinishedOnes) {
  const std::uint32_t finished = upload(5);
  end(finished);
  const std::uint32_t open = upload(7);
  parts_->sessions.close(*browser_, session_);
  const std::uint32_t next = ask(browser_, agent_);
  EXPECT_NE(next, 0u);
  EXPECT_EQ(order(), "99 100:5 101 101 70 65");
  const Lines rows = audited();
  const auto row = std::ranges::find_if(
      rows, [&](const std::string& line) { return line.find("unfinished") != std::string::npos; });
  ASSERT_NE(row, rows.end());
  EXPECT_NE(row->find("\"transfer\":" + std::to_string(open)), std::string::npos);
  EXPECT_NE(row->find("\"bytes\":0"), std::string::npos) << "no byte was sent to the machine";
}

TEST_F(MachineLaneTest, UploadThatLosesItsRightIsTakenFromTheQueueAndTheBrowserIsTold) {
  upload(7);
  (void)sent(*browser_->channel);
  give_rights(parts_->people.person_named("ada")->id, kSee);
  (void)person("ada", Role::Representative);
  EXPECT_EQ(order(), "101");
  const Lines lines = sent(*browser_->channel);
  const auto total = Json{{"type", "uploaded"}, {"session", session_}, {"bytes", 7}}.dump();
  EXPECT_NE(std::ranges::find(lines, total), lines.end());
}

TEST_F(MachineLaneTest, AnswerToAHeartbeatThatOvertookAnEndMessageDoesNotSettleIt) {
  const std::uint32_t transfer = upload(5);
  end(transfer);
  parts_->watchdog.tick(Clock::now() + limits_.heartbeat);
  EXPECT_EQ(order(), "4 99 100:5 101");
  echo(1);
  EXPECT_EQ(parts_->transfers.owed("a", Clock::now()), std::vector{transfer});
  parts_->watchdog.tick(Clock::now() + 2 * limits_.heartbeat);
  echo(2);
  EXPECT_EQ(parts_->transfers.owed("a", Clock::now()), std::vector<std::uint32_t>{});
}

TEST_F(MachineLaneTest, InputForALostLineIsDroppedExceptTheReleaseOfWhatIsDown) {
  press('A');
  lose_line();
  (void)sent(*browser_->channel);
  press('B');
  release('B');
  (void)order();
  const Lines reports = sent(*browser_->channel);
  ASSERT_EQ(reports.size(), 1u) << "not one for each event";
  EXPECT_NE(reports[0].find("\"code\":\"input-dropped\""), std::string::npos);
  EXPECT_EQ(send(Msg::InputEvent, {2, 1, 0, 0, 0, 0, 4, 0, 'A', 0, 0, 0, 0}), Route::Kind::Forward);
  EXPECT_EQ(sent(*agent_->channel),
            (Lines{"86/" + std::to_string(session_) + " " + std::string{1, 4, 0, 'A', 0, 0, 0, 0}}));
  agent_->channel->on_measure([] { return TcpProgress{2, true}; });
  press('C');
  EXPECT_EQ(order(), "86") << "the line is back";
}

TEST(UploadCountsTest, BrowserIsToldInStepsAndWhenNothingIsQueued) {
  UploadCounts counts;
  EXPECT_EQ(counts.passed(1, 5), std::nullopt) << "of another session";
  counts.took(1, UploadCounts::kReport + 10);
  EXPECT_EQ(counts.passed(1, UploadCounts::kReport - 1), std::nullopt);
  EXPECT_EQ(counts.passed(1, 1), UploadCounts::kReport);
  EXPECT_EQ(counts.passed(1, 4), std::nullopt);
  EXPECT_EQ(counts.passed(1, 6), UploadCounts::kReport + 10);
  EXPECT_EQ(counts.taken(1), UploadCounts::kReport + 10);
}

}  // namespace
}  // namespace vlk::relay
