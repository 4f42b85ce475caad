// File transfers: their numbers, the decisions about their messages, and the end messages that a machine is
// owed. Also the audit note about clipboard files.
#include "relay/session/files/transfers.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "relay/session/transfer_bytes.h"
#include "relay/wire/clip_note.h"
#include "support/bytes/clip_bytes.h"

namespace vlk::relay {
namespace {

using vantelink_test::record;

std::string payload_of(const Bytes& message) {
  return {message.begin() + kEnvelopeHeaderSize, message.end()};
}

using Kind = TransferRuling::Kind;

class TransfersTest : public testing::Test {
 protected:
  TransferRuling send(Msg type, const std::string& payload, std::uint32_t session = 7) {
    message_ = envelope(type, session, payload);
    return transfers_.from_browser(session, type, message_);
  }
  TransferRuling request(Msg type, std::uint32_t transfer, const std::string& path = "C:\\\\a.txt") {
    return send(type, R"({"transfer_id":)" + std::to_string(transfer) + R"(,"path":")" + path + R"("})");
  }

  Transfers transfers_{0xFFFFFFFE};
  Bytes message_;
};

TEST_F(TransfersTest, TransferNumbersAreNotZeroAndAreNotUsedTwice) {
  EXPECT_EQ(transfers_.give(7), 0xFFFFFFFF);
  EXPECT_EQ(transfers_.give(7), 1u);
  EXPECT_EQ(transfers_.give(8), 2u);
  (void)transfers_.end_session(7);
  EXPECT_EQ(transfers_.give(7), 3u);
}

TEST_F(TransfersTest, TransferBeyondTheLimitOfOpenTransfersPerSessionGetsNoNumber) {
  const std::uint32_t first = transfers_.give(7);
  for (std::size_t i = 1; i < Transfers::kOpenPerSession; ++i)
    EXPECT_NE(transfers_.give(7), 0u);
  EXPECT_EQ(transfers_.give(7), 0u);
  EXPECT_NE(transfers_.give(8), 0u);
  EXPECT_EQ(request(Msg::UploadBegin, first).kind, Kind::Pass);
  EXPECT_EQ(send(Msg::FileTransferEnd, R"({"transfer_id":)" + std::to_string(first) + "}").kind, Kind::Pass);
  EXPECT_NE(transfers_.give(7), 0u);
}

TEST_F(TransfersTest, MessagesWithoutATransferNumberOfTheSessionAreRefused) {
  const std::uint32_t other = transfers_.give(8);
  const std::uint32_t own = transfers_.give(7);
  for (const std::uint32_t number : {0u, other, own + 1}) {
    EXPECT_EQ(request(Msg::DownloadRequest, number).kind, Kind::Refuse);
    EXPECT_EQ(request(Msg::UploadBegin, number).kind, Kind::Refuse);
    EXPECT_EQ(send(Msg::FileChunk, chunk(number, "x")).kind, Kind::Refuse);
    EXPECT_EQ(send(Msg::FileTransferEnd, R"({"transfer_id":)" + std::to_string(number) + "}").kind,
              Kind::Refuse);
  }
  EXPECT_EQ(send(Msg::FileChunk, chunk(own, "x")).kind, Kind::Refuse) << "the transfer has not begun";
  EXPECT_EQ(request(Msg::DownloadRequest, own).kind, Kind::Pass);
  EXPECT_EQ(send(Msg::FileChunk, chunk(own, "x")).kind, Kind::Refuse) << "the transfer is a download";
  EXPECT_EQ(request(Msg::UploadBegin, own).kind, Kind::Refuse) << "the number is in use already";
}

TEST_F(TransfersTest, RequestsWithInvalidNumbersOrPathsAreRefusedAndSoAreTruncatedChunks) {
  const std::string own = std::to_string(transfers_.give(7));
  for (const std::string& payload : std::vector<std::string>{
           "", "{", "5", "[]", R"({"path":"C:\\a"})", R"({"transfer_id":)" + own + "}",
           R"({"transfer_id":)" + own + R"(,"path":""})", R"({"transfer_id":)" + own + R"(,"path":5})",
           R"({"transfer_id":-1,"path":"a"})", R"({"transfer_id":1e30,"path":"a"})",
           R"({"transfer_id":")" + own + R"(","path":"a"})",
           R"({"transfer_id":)" + own + R"(,"path":"a\nb"})",
           R"({"transfer_id":)" + own + R"(,"path":"a\u0000b"})"}) {
    EXPECT_EQ(send(Msg::DownloadRequest, payload).kind, Kind::Refuse) << payload;
    EXPECT_EQ(send(Msg::UploadBegin, payload).kind, Kind::Refuse) << payload;
  }
  for (std::size_t size = 0; size < 8; ++size)
    EXPECT_EQ(send(Msg::FileChunk, std::string(size, '\0')).kind, Kind::Refuse);
}

// The agent's JSON reader searches the text for keys, and must find exactly the values that the relay
// checked.
TEST_F(TransfersTest, RefusalNamesTheNumberOrZeroIfItCannotBeRead) {
  const std::uint32_t own = transfers_.give(7);
  EXPECT_EQ(send(Msg::FileTransferEnd, "{").transfer, 0u);
  EXPECT_EQ(send(Msg::FileTransferEnd, R"({"transfer_id":)" + std::to_string(own + 9) + "}").transfer,
            own + 9);
  EXPECT_EQ(send(Msg::FileChunk, "x").transfer, 0u);
  EXPECT_EQ(send(Msg::FileChunk, chunk(own, "x")).transfer, own);
  EXPECT_EQ(send(Msg::UploadBegin, "{").transfer, 0u);
  EXPECT_EQ(request(Msg::UploadBegin, own, "").transfer, own);
}

TEST_F(TransfersTest, RequestsAreRewrittenSoThatTheMachineReadsWhatWasChecked) {
  const std::string own = std::to_string(transfers_.give(7));
  const std::string hidden =
      R"({"x":"\u0022transfer_id\u0022:99","a":{"transfer_id":98},"path":"C:\\þ \"transfer_id\":97",)"
      R"("transfer_id":)" +
      own + R"(,"size":12,"more":1})";
  EXPECT_EQ(send(Msg::UploadBegin, hidden).kind, Kind::Pass);
  EXPECT_EQ(payload_of(message_),
            R"({"transfer_id":)" + own + R"(,"path":"C:\\þ \"transfer_id\":97","size":12})");
  EXPECT_EQ(read_header(message_)->session, 7u);
  EXPECT_EQ(send(Msg::FileTransferEnd, R"({"a":{"transfer_id":99},"transfer_id":)" + own + "}").kind,
            Kind::Pass);
  EXPECT_EQ(payload_of(message_), R"({"transfer_id":)" + own + "}");
}

TEST_F(TransfersTest, CancellationOfADownloadIsNotSentToTheMachineAndFurtherChunksAreDropped) {
  const std::uint32_t own = transfers_.give(7);
  request(Msg::DownloadRequest, own);
  EXPECT_TRUE(transfers_.from_agent(7, Msg::FileChunk, envelope(Msg::FileChunk, 7, chunk(own, "ab"))).wanted);
  const std::string end = R"({"transfer_id":)" + std::to_string(own);
  EXPECT_EQ(send(Msg::FileTransferEnd, end + "}").kind, Kind::Swallow);
  EXPECT_FALSE(transfers_.from_agent(7, Msg::FileChunk, envelope(Msg::FileChunk, 7, chunk(own, "c"))).wanted);
  const auto last = transfers_.from_agent(7, Msg::FileTransferEnd,
                                          envelope(Msg::FileTransferEnd, 7, end + R"(,"ok":true})"));
  EXPECT_TRUE(last.wanted);
  ASSERT_TRUE(last.note);
  EXPECT_EQ(last.note->fields,
            R"({"transfer":)" + std::to_string(own) +
                R"(,"direction":"down","path":"C:\\a.txt","bytes":3,"result":"cancelled"})");
}

TEST_F(TransfersTest, StartAndEndOfAnUploadAreNotedForTheAuditTrail) {
  const std::uint32_t own = transfers_.give(7);
  const auto begin = request(Msg::UploadBegin, own);
  ASSERT_TRUE(begin.note);
  EXPECT_EQ(begin.note->code, "file.started");
  EXPECT_EQ(nlohmann::json::parse(begin.note->fields)["path"], "C:\\a.txt");
  send(Msg::FileChunk, chunk(own, "12345"));
  const auto end = send(Msg::FileTransferEnd, R"({"transfer_id":)" + std::to_string(own) + "}");
  ASSERT_TRUE(end.note);
  EXPECT_EQ(end.note->code, "file.ended");
  EXPECT_EQ(end.note->fields,
            R"({"transfer":)" + std::to_string(own) + R"(,"direction":"up","path":"C:\\a.txt","size":)" +
                nlohmann::json::parse(end.note->fields)["size"].dump() + R"(,"bytes":5,"result":"ended"})");
  const auto longest = request(Msg::UploadBegin, transfers_.give(7), std::string(100'000, 'x'));
  EXPECT_LT(longest.note->fields.size(), 5000u);
}

TEST_F(TransfersTest, EndingASessionReturnsItsOpenUploadsAndForgetsItsTransfers) {
  const std::uint32_t open = transfers_.give(7), unused = transfers_.give(7), down = transfers_.give(7);
  request(Msg::UploadBegin, open);
  request(Msg::DownloadRequest, down);
  const auto left = transfers_.end_session(7);
  EXPECT_EQ(left.uploads, std::vector<std::uint32_t>{open});
  EXPECT_EQ(left.notes.size(), 2u);
  EXPECT_TRUE(transfers_.end_session(7).uploads.empty());
  EXPECT_EQ(request(Msg::UploadBegin, unused).kind, Kind::Refuse);
}

TEST_F(TransfersTest, PendingEndMessagesAreLimitedAndAreRemovedAfterTheMachineHasReadThem) {
  const auto start = Clock::now();
  const auto at = [&](int second) { return start + std::chrono::seconds(second); };
  transfers_.owe("a", {1, 2}, at(0));
  transfers_.owe("a", {3}, at(2));
  EXPECT_TRUE(transfers_.owed("b", at(2)).empty());
  transfers_.settle("a", at(2));
  EXPECT_EQ(transfers_.owed("a", at(5)), std::vector<std::uint32_t>{3});
  transfers_.settle("a", at(3));
  EXPECT_EQ(transfers_.owed("a", at(6)), std::vector<std::uint32_t>{3})
      << "the end message was sent again later";
  transfers_.settle("a", at(7));
  EXPECT_TRUE(transfers_.owed("a", at(8)).empty());
  for (std::uint32_t i = 0; i < Transfers::kOwedPerAgent; ++i)
    transfers_.owe("a", {i, i}, at(9));
  EXPECT_EQ(transfers_.owed("a", at(9)).size(), Transfers::kOwedPerAgent);
}

TEST_F(TransfersTest, OversizedEndMessageOfADownloadIsDropped) {
  const std::uint32_t own = transfers_.give(7);
  request(Msg::DownloadRequest, own);
  const std::string end = R"({"transfer_id":)" + std::to_string(own) + R"(,"ok":true})";
  const auto long_end = envelope(Msg::FileTransferEnd, 7, end + std::string(Transfers::kLongestEnd, ' '));
  EXPECT_FALSE(transfers_.from_agent(7, Msg::FileTransferEnd, long_end).wanted);
  EXPECT_TRUE(transfers_.from_agent(7, Msg::FileTransferEnd, envelope(Msg::FileTransferEnd, 7, end)).note);
}

// The kind, the number of files and their names, separated by commas.
std::optional<std::string> note_of(const std::string& payload) {
  const auto note = clip_note(envelope(Msg::ClipboardData, 7, payload));
  if (!note) return std::nullopt;
  EXPECT_EQ(note->bytes, payload.size());
  std::string text = std::string(note->kind) + ' ' + std::to_string(note->files);
  for (const std::string& name : note->names)
    text += ", " + name;
  return text;
}

TEST(ClipNote, ContainsFileNamesAndNoOtherClipboardContent) {
  EXPECT_EQ(note_of(""), std::nullopt);
  EXPECT_EQ(note_of("\1secret"), "text 0");
  EXPECT_EQ(note_of("\2png"), "picture 0");
  EXPECT_EQ(note_of("\4x"), "other 0");
  EXPECT_EQ(note_of("\3"), "files 0");
  const std::string two = "\3" + big_endian(2) + record("þ.txt", "content") + record("b\nc", "");
  EXPECT_EQ(note_of(two), "files 2, þ.txt, b c");
}

TEST(ClipNote, CountsOnlyCompleteFilesInTruncatedOrInvalidPayloads) {
  const std::string one = "\3" + big_endian(1) + record("a", "xyz");
  for (std::size_t size = 1; size < one.size(); ++size)
    EXPECT_EQ(note_of(one.substr(0, size)), "files 0") << size;
  EXPECT_EQ(note_of("\3" + big_endian(0xFFFFFFFF) + record("a", "x")), "files 1, a");
  EXPECT_EQ(note_of("\3" + big_endian(1) + big_endian(0xFFFFFFFF) + "a"), "files 0");
  EXPECT_EQ(note_of("\3" + big_endian(1) + big_endian(1) + "a" + std::string(8, '\xff') + "x"), "files 0");
  std::string many = "\3" + big_endian(1000);
  for (int i = 0; i < 1000; ++i)
    many += record(std::string(100, 'n'), "");
  EXPECT_EQ(note_of(many)->substr(0, 11), "files 1000,");
  EXPECT_LT(note_of(many)->size(), 2 * kLongestClipNote);
}

}  // namespace
}  // namespace vlk::relay
