// File transfers through the relay while their browser stores slowly, is away, or comes back.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"
#include "relay/session/files/downloads.h"
#include "relay/session/transfer_bytes.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kAgentChunk = 262'144;
constexpr std::uint32_t kChunks = 200;                             // of the file
constexpr std::uint32_t kHeld = Downloads::kWindow / kAgentChunk;  // chunks that are sent unconfirmed
constexpr const char* kEnds = "SELECT id FROM trail WHERE code = 'file.ended'";

class LastingTransfersTest : public RelayTest {
 protected:
  void SetUp() override {
    set_limits();
    RelayTest::SetUp();
    std::ofstream file(folder_ / "large", std::ios::binary);
    for (std::uint32_t index = 0; index < kChunks; ++index)
      file << content(index);
    file.close();
    agent_ = connect_agent("Sæfari");
    cookie_ = log_in();
    browser_ = console(0, cookie_);
    session_ = browser_->open_session(vantelink_fakes::saved_config().agent_id);
  }
  virtual void set_limits() {}
  static std::string content(std::uint32_t index) {
    return std::string(kAgentChunk, static_cast<char>('a' + index % 23));
  }
  std::uint32_t number() {
    browser_->send({{"type", "transfer"}, {"session", session_}, {"request", 5}});
    return browser_->read_text("transfer")["transfer"];
  }
  std::uint32_t begin(Msg type, const char* name) {
    const std::uint32_t transfer = number();
    const Json fields = {{"transfer_id", transfer}, {"path", folder_ / name}, {"size", 4 * kAgentChunk}};
    browser_->send_envelope(type, session_, fields.dump());
    return transfer;
  }
  void stored(std::uint32_t transfer, std::uint32_t chunks, bool end = false) {
    browser_->send({{"type", "stored"},
                    {"session", session_},
                    {"transfer", transfer},
                    {"bytes", chunks * kAgentChunk},
                    {"end", end}});
  }
  // Reads the next chunks, which must have these indexes.
  void expect_chunks(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t index = first; index < last; ++index) {
      const auto payload = browser_->read_envelope(Msg::FileChunk).payload;
      ASSERT_EQ(std::string(payload.begin() + 4, payload.begin() + 8), big_endian(index));
      ASSERT_EQ(std::string(payload.begin() + 8, payload.end()), content(index));
    }
  }
  void expect_end() {
    EXPECT_EQ(Json::parse(browser_->read_envelope(Msg::FileTransferEnd).payload)["ok"], true);
  }
  // Drops the browser's connection, when the relay has read what it sent, and waits until the session is
  // held.
  void drop() {
    browser_->send({{"type", "ping"}, {"id", 1}});
    browser_->read_text("pong");
    browser_.reset();
    EXPECT_TRUE(logged("session " + std::to_string(session_) + " is held"));
  }
  // Resumes the session with another connection and returns the relay's message.
  Json come_back() {
    browser_ = console(0, cookie_);
    browser_->send({{"type", "resume"}, {"session", session_}});
    Json message = browser_->read_text("session");
    EXPECT_EQ(message["state"], "accepted");
    EXPECT_EQ(message["resumed"], true);
    return message;
  }
  Json go_on(std::uint32_t transfer, std::uint32_t chunks) {
    browser_->send({{"type", "continue"},
                    {"session", session_},
                    {"transfer", transfer},
                    {"bytes", chunks * kAgentChunk}});
    return browser_->read_text("continued");
  }
  // Waits until the machine has sent the whole file.
  void wait_for_machine() {
    EXPECT_TRUE(eventually([&] { return !is_open(folder_ / "large"); }));
  }

  std::unique_ptr<agent::AgentClient> agent_;
  std::string cookie_;
  std::unique_ptr<Browser> browser_;
  std::uint32_t session_ = 0;
};

TEST_F(LastingTransfersTest, MachineIsReadToTheEndWhileTheBrowserConfirmsNothing) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  expect_chunks(0, kHeld);
  wait_for_machine();
  // Chunks that arrived between these answers would be skipped, and the next index would be a later one.
  for (int i = 0; i < 100; ++i) {
    browser_->send({{"type", "ping"}, {"id", i}});
    browser_->read_text("pong");
  }
  for (std::uint32_t index = kHeld; index < kChunks; ++index) {
    stored(transfer, index - kHeld + 1);
    expect_chunks(index, index + 1);
  }
  stored(transfer, kChunks);
  expect_end();
  stored(transfer, kChunks, true);
  drop();
  EXPECT_EQ(come_back()["transfers"], Json::array()) << "the download is over";
}

TEST_F(LastingTransfersTest, DownloadContinuesWhereTheBrowserWasAfterItsConnectionWasLost) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  expect_chunks(0, 20);
  stored(transfer, 16);
  drop();
  wait_for_machine();
  const Json listed = come_back()["transfers"];
  EXPECT_EQ(listed, Json::array({{{"transfer", transfer},
                                  {"kind", "download"},
                                  {"path", folder_ / "large"},
                                  {"bytes", 16 * kAgentChunk}}}));
  EXPECT_EQ(go_on(transfer, 20), (Json{{"type", "continued"},
                                       {"session", session_},
                                       {"transfer", transfer},
                                       {"bytes", 20 * kAgentChunk},
                                       {"chunk", 20}}));
  for (std::uint32_t index = 20; index < kChunks; ++index) {
    expect_chunks(index, index + 1);
    stored(transfer, index + 1);
  }
  expect_end();
}

TEST_F(LastingTransfersTest, BrowserThatComesBackLearnsWhichUnwantedDownloadsTheMachineStillSends) {
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "pipe");
  std::ofstream pipe(folder_ / "pipe", std::ios::binary);  // opens when the machine reads
  browser_->send_envelope(Msg::FileTransferEnd, session_, Json{{"transfer_id", transfer}}.dump());
  drop();
  EXPECT_EQ(come_back()["unwanted"], Json::array({transfer}));
  drop();
  pipe.close();
  EXPECT_TRUE(eventually([&] { return RelayTest::stored(kEnds).size() == 1; }));
  EXPECT_EQ(come_back()["unwanted"], Json::array());
}

TEST_F(LastingTransfersTest, BrowserThatCancelsADownloadThatTheMachineHasEndedGetsItsEnd) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  expect_chunks(0, kHeld);
  wait_for_machine();
  browser_->send_envelope(Msg::FileTransferEnd, session_, Json{{"transfer_id", transfer}}.dump());
  expect_end();
}

TEST_F(LastingTransfersTest, PageThatHasLostWhatItHadGetsEverythingThatItDidNotConfirm) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  expect_chunks(0, 30);
  drop();
  come_back();
  EXPECT_EQ(go_on(transfer, 0)["chunk"], 0);
  expect_chunks(0, kHeld);
  browser_->send({{"type", "continue"}, {"session", session_}, {"transfer", transfer}, {"bytes", 5}});
  EXPECT_EQ(browser_->read_text("error")["code"], "not-kept");
  browser_->send({{"type", "continue"}, {"session", session_}, {"transfer", transfer + 1}, {"bytes", 0}});
  EXPECT_EQ(browser_->read_text("error")["transfer"], transfer + 1);
}

TEST_F(LastingTransfersTest, NothingOfADownloadIsSentToABrowserThatDoesNotContinueIt) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  expect_chunks(0, 4);
  drop();
  come_back();
  browser_->send_envelope(Msg::FileTransferEnd, session_, Json{{"transfer_id", transfer}}.dump());
  const std::uint32_t other = begin(Msg::DownloadRequest, "large");
  EXPECT_NE(other, transfer);
  expect_chunks(0, kHeld);
}

TEST_F(LastingTransfersTest, UploadContinuesAfterWhatTheRelayHasTaken) {
  const std::uint32_t transfer = begin(Msg::UploadBegin, "new");
  browser_->send_envelope(Msg::FileChunk, session_, chunk(transfer, content(0)));
  browser_->send_envelope(Msg::FileChunk, session_, chunk(transfer, content(1)));
  while (browser_->read_text("uploaded")["bytes"] < 2 * kAgentChunk) {
  }
  drop();
  EXPECT_TRUE(is_open(folder_ / "new"));
  const Json message = come_back();
  EXPECT_EQ(message["transfers"], Json::array({{{"transfer", transfer},
                                                {"kind", "upload"},
                                                {"path", folder_ / "new"},
                                                {"size", 4 * kAgentChunk},
                                                {"bytes", 2 * kAgentChunk}}}));
  EXPECT_EQ(message["uploads"], (Json{{"taken", 2 * kAgentChunk}, {"passed", 2 * kAgentChunk}}));
  EXPECT_EQ(go_on(transfer, 0)["bytes"], 2 * kAgentChunk);
  browser_->send_envelope(Msg::FileChunk, session_, chunk(transfer, content(2)));
  while (browser_->read_text("uploaded")["bytes"] < 3 * kAgentChunk) {
  }
  browser_->send_envelope(Msg::FileTransferEnd, session_, Json{{"transfer_id", transfer}}.dump());
  EXPECT_TRUE(eventually([&] { return !is_open(folder_ / "new"); }));
  std::ifstream file(folder_ / "new", std::ios::binary);
  const std::string whole{std::istreambuf_iterator<char>(file), {}};
  EXPECT_TRUE(whole == content(0) + content(1) + content(2));
}

TEST_F(LastingTransfersTest, DownloadAndUploadDoNotWaitForEachOther) {
  begin(Msg::DownloadRequest, "large");
  const std::uint32_t up = number();
  const auto envelope = [&](Msg type, const std::string& payload) {
    const auto bytes = encode_envelope(type, session_, reinterpret_cast<const unsigned char*>(payload.data()),
                                       payload.size(), 1);
    return std::string(bytes.begin(), bytes.end());
  };
  std::vector<std::string> messages = {
      envelope(Msg::UploadBegin, Json{{"transfer_id", up}, {"path", folder_ / "upload"}}.dump())};
  for (int i = 0; i < 48; ++i) {
    messages.push_back(envelope(Msg::DirListRequest, R"({"path":"/"})"));
    messages.push_back(envelope(Msg::FileChunk, chunk(up, std::string(1 << 20, 'x'))));
  }
  std::uint32_t index = 0;
  browser_->send_while_reading(messages, [&](Msg type, const std::string& payload) {
    if (type != Msg::FileChunk) return;
    EXPECT_EQ(payload.substr(4, 4), big_endian(index++));
  });
  wait_for_machine();
}

TEST_F(LastingTransfersTest, ConfirmationAndContinuationWithoutNumbersAreRefused) {
  for (const char* type : {"stored", "continue"}) {
    for (const Json& fields :
         {Json::object(), Json{{"session", session_}, {"bytes", 1}},
          Json{{"session", session_}, {"transfer", 1}, {"bytes", -1}}, Json{{"transfer", 1}, {"bytes", 1}}}) {
      Json message = fields;
      message["type"] = type;
      browser_->send(message);
      browser_->read_text("error");
    }
  }
}

class SmallSpoolTest : public LastingTransfersTest {
 protected:
  void set_limits() override {
    limits_.spool = 24u << 20;
    limits_.spools = 64u << 20;
  }
};

TEST_F(SmallSpoolTest, DownloadThatDoesNotFitEndsWithAnError) {
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "large");
  const Json error = browser_->read_text("error");
  EXPECT_EQ(error["code"], "spool-full");
  EXPECT_EQ(error["transfer"], transfer);
  EXPECT_NE(error["message"], "");
  wait_for_machine();
  // The room is there for the next one.
  const std::uint32_t next = begin(Msg::DownloadRequest, "large");
  for (std::uint32_t index = 0; index < kChunks; ++index) {
    const auto payload = browser_->read_envelope(Msg::FileChunk).payload;
    if (std::string(payload.begin(), payload.begin() + 4) != big_endian(next)) continue;
    stored(next, index + 1);
    break;
  }
}

TEST_F(SmallSpoolTest, BrowserThatComesBackLearnsOfTheEndOfItsDownload) {
  // The machine gets to the end of the room only when the browser is away.
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  const std::uint32_t transfer = begin(Msg::DownloadRequest, "pipe");
  std::ofstream pipe(folder_ / "pipe", std::ios::binary);
  for (std::uint32_t index = 0; index < 4; ++index)
    pipe << content(index);
  pipe.flush();
  expect_chunks(0, 4);
  drop();
  for (std::uint32_t index = 4; index < kChunks; ++index)
    pipe << content(index);
  pipe.close();
  EXPECT_TRUE(logged("a download was not kept: spool-full"));
  const Json listed = come_back()["transfers"];
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0]["transfer"], transfer);
  EXPECT_EQ(listed[0]["error"], "spool-full");
  drop();
  EXPECT_EQ(come_back()["transfers"], Json::array());
}

class ShortHoldTest : public LastingTransfersTest {
 protected:
  void set_limits() override { limits_.hold = std::chrono::milliseconds(100); }
};

TEST_F(ShortHoldTest, FilesOfOpenUploadsAreClosedWhenTheBrowserDoesNotComeBack) {
  const std::uint32_t transfer = begin(Msg::UploadBegin, "new");
  browser_->send_envelope(Msg::FileChunk, session_, chunk(transfer, "part"));
  EXPECT_TRUE(eventually([&] { return is_open(folder_ / "new"); }));
  browser_.reset();
  EXPECT_TRUE(logged("ended: browser-gone"));
  EXPECT_TRUE(eventually([&] { return !is_open(folder_ / "new"); }));
}

}  // namespace
}  // namespace vlk::relay
