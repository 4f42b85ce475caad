// File transfers through the relay: contents, the end messages that machines receive, the audit trail, and
// the relay's memory use while a browser or a machine does not read.
#include <sys/stat.h>

#include <atomic>
#include <fstream>
#include <set>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"
#include "relay/session/transfer_bytes.h"
#include "support/bytes/clip_bytes.h"
#include "support/peers/raw_agent.h"

namespace vlk::relay {
namespace {

using vantelink_test::record;

class TransferTest : public RelayTest {
 protected:
  std::uint32_t open(Browser& browser) {
    return browser.open_session(vantelink_fakes::saved_config().agent_id);
  }
  static std::uint32_t number(Browser& browser, std::uint32_t session) {
    browser.send({{"type", "transfer"}, {"session", session}, {"request", 5}});
    const Json answer = browser.read_text("transfer");
    EXPECT_EQ(answer["request"], 5);
    return answer["transfer"];
  }
  static void send_json(Browser& browser, Msg type, std::uint32_t session, const Json& fields) {
    browser.send_envelope(type, session, fields.dump());
  }
  std::filesystem::path file(const char* name) const { return folder_ / name; }
  void upload_part(Browser& browser, std::uint32_t session, const std::filesystem::path& path) {
    const std::uint32_t transfer = number(browser, session);
    send_json(browser, Msg::UploadBegin, session, {{"transfer_id", transfer}, {"path", path}, {"size", 9}});
    browser.send_envelope(Msg::FileChunk, session, chunk(transfer, "part"));
    EXPECT_TRUE(eventually([&] { return is_open(path); }));
  }
  template <typename Meanwhile>
  void upload_to_a_pipe(Meanwhile meanwhile);
  static std::string clip_row(const std::string& direction, const std::string& payload) {
    return R"(clip.sent {"direction":")" + direction + R"(","kind":"files","bytes":)" +
           std::to_string(payload.size()) + R"(,"files":1,"names":["a.txt"]})";
  }
  // The rows of the audit trail about files. Waits until there are at least `count` rows.
  std::multiset<std::string> audited(std::size_t count) {
    std::multiset<std::string> rows;
    EXPECT_TRUE(eventually([&] {
      rows = stored("SELECT code || ' ' || fields FROM trail WHERE code GLOB 'file.*' OR code GLOB 'clip.*'");
      return rows.size() >= count;
    }));
    return rows;
  }
};

TEST_F(TransferTest, UploadedFileCanBeDownloaded) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  std::string content;
  for (int i = 0; i < 600'000; ++i)
    content += static_cast<char>(i * 7 + i / 256);
  const std::string path = file("ný skrá.bin");

  const std::uint32_t up = number(*browser, session);
  send_json(*browser, Msg::UploadBegin, session, {{"transfer_id", up}, {"path", path}, {"size", 600'000}});
  for (std::size_t at = 0; at < content.size(); at += 100'000)
    browser->send_envelope(Msg::FileChunk, session, chunk(up, content.substr(at, 100'000)));
  send_json(*browser, Msg::FileTransferEnd, session, {{"transfer_id", up}});

  const std::uint32_t down = number(*browser, session);
  EXPECT_NE(down, up);
  send_json(*browser, Msg::DownloadRequest, session, {{"transfer_id", down}, {"path", path}});
  std::string received;
  while (received.size() < content.size()) {
    const auto payload = browser->read_envelope(Msg::FileChunk).payload;
    received.append(payload.begin() + 8, payload.end());
  }
  EXPECT_TRUE(received == content);
  const auto end = browser->read_envelope(Msg::FileTransferEnd).payload;
  EXPECT_EQ(Json::parse(end)["ok"], true);
  const auto started = [&](std::uint32_t transfer, const std::string& direction, const char* size) {
    return "file.started {\"transfer\":" + std::to_string(transfer) + R"(,"direction":")" + direction +
           R"(","path":")" + path + '"' + size + '}';
  };
  const auto ended = [&](std::uint32_t transfer, const std::string& direction, const char* size) {
    return "file.ended {\"transfer\":" + std::to_string(transfer) + R"(,"direction":")" + direction +
           R"(","path":")" + path + '"' + size + R"(,"bytes":600000,"result":"ended"})";
  };
  EXPECT_EQ(audited(4), (std::multiset<std::string>{started(up, "up", R"(,"size":600000)"),
                                                    ended(up, "up", R"(,"size":600000)"),
                                                    started(down, "down", ""), ended(down, "down", "")}));
}

TEST_F(TransferTest, RefusedMessagesAreAnsweredAndAreNotSentToTheMachine) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  const std::uint32_t transfer = number(*browser, session);
  send_json(*browser, Msg::UploadBegin, session, {{"transfer_id", transfer + 1}, {"path", file("never")}});
  EXPECT_EQ(browser->read_text("error")["transfer"], transfer + 1);
  browser->send_envelope(Msg::FileChunk, session, chunk(transfer, "x"));
  EXPECT_EQ(browser->read_text("error")["transfer"], transfer);
  for (const Json& fields :
       {Json{{"session", session}}, Json{{"request", 1}}, Json{{"session", session + 1}, {"request", 1}},
        Json{{"session", -1}, {"request", "x"}}}) {
    Json message = fields;
    message["type"] = "transfer";
    browser->send(message);
    EXPECT_NE(browser->read_text("error")["message"], "");
  }
  // Messages arrive in order, so a refused message would have arrived before this upload.
  upload_part(*browser, session, file("allowed"));
  EXPECT_FALSE(std::filesystem::exists(file("never")));
}

TEST_F(TransferTest, ClipsAreInTheAuditTrailWithTheNamesOfTheirFilesAndWithoutTheirText) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  const std::string files = "\3" + big_endian(1) + record("a.txt", "x");
  browser->send_envelope(Msg::ClipboardData, session, files);
  agent->send_text(Msg::ClipboardData, session, "\1text");
  agent->send_text(Msg::ClipboardData, session, files);
  browser->read_envelope(Msg::ClipboardData);
  EXPECT_EQ(browser->read_envelope(Msg::ClipboardData).payload.size(), files.size());
  EXPECT_EQ(audited(3),
            (std::multiset<std::string>{clip_row("up", files), clip_row("down", files),
                                        R"(clip.sent {"direction":"down","kind":"text","bytes":5})"}));
}

TEST_F(TransferTest, FilesOfOpenUploadsAreClosedWhenTheSessionIsClosed) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  upload_part(*browser, session, file("a"));
  upload_part(*browser, session, file("b"));
  browser->send({{"type", "close"}, {"session", session}});
  EXPECT_TRUE(eventually([&] { return !is_open(file("a")) && !is_open(file("b")); }));
  EXPECT_EQ(std::filesystem::file_size(file("a")), 4u);
}

TEST_F(TransferTest, FilesOfOpenUploadsAreClosedAfterADisconnectedMachineLogsInAgain) {
  auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  upload_part(*browser, session, file("a"));
  const agent::AgentConfig config = vantelink_fakes::saved_config();
  agent->stop();
  EXPECT_TRUE(logged("ended: agent-gone"));
  EXPECT_TRUE(is_open(file("a"))) << "the agent keeps the file open after its connection";
  agent::AgentClient again(config, {});
  again.start();
  EXPECT_TRUE(eventually([&] { return !is_open(file("a")); }));
}

using vantelink_test::RawAgent;

Envelope read_until(RawAgent& agent, Msg type) {
  for (;;) {
    Envelope envelope = agent.read();
    if (envelope.type == static_cast<std::uint8_t>(type)) return envelope;
  }
}

// Logs the machine in and reads until the first heartbeat, without answering it. Returns the uploads whose
// end messages have arrived by then.
std::set<std::uint32_t> ends_after_log_in(RawAgent& agent, const Json& identity) {
  agent.send(Msg::Hello, R"({"role":"agent"})");
  agent.send(Msg::Login,
             Json{{"agent_id", identity["agent_id"]}, {"secret", identity["agent_secret"]}}.dump());
  std::set<std::uint32_t> ends;
  for (;;) {
    const Envelope envelope = agent.read();
    if (envelope.type == static_cast<std::uint8_t>(Msg::Heartbeat)) return ends;
    if (envelope.type == static_cast<std::uint8_t>(Msg::FileTransferEnd))
      ends.insert(Json::parse(envelope.payload)["transfer_id"].get<std::uint32_t>());
  }
}

TEST_F(TransferTest, EndMessagesOfUploadsAreSentAgainAfterEachLogInUntilTheMachineAnswersAHeartbeat) {
  auto browser = console();
  auto lost = std::make_unique<RawAgent>(port_);
  lost->send(Msg::Hello, R"({"role":"agent"})");
  lost->send(Msg::Enroll, "{}");
  const Json identity = Json::parse(read_until(*lost, Msg::EnrollResult).payload);
  browser->send({{"type", "open"}, {"agent", identity["agent_id"]}});
  const std::uint32_t session = read_until(*lost, Msg::SessionRequest).session_id;
  const Bytes yes = envelope(Msg::SessionAccept, session, "{}");
  lost->send_bytes({yes.begin(), yes.end()});
  browser->accepted_session();
  std::set<std::uint32_t> uploads;
  for (const char* name : {"ended by the browser", "open at the session's end"}) {
    const std::uint32_t transfer = number(*browser, session);
    uploads.insert(transfer);
    send_json(*browser, Msg::UploadBegin, session, {{"transfer_id", transfer}, {"path", name}});
  }
  send_json(*browser, Msg::FileTransferEnd, session, {{"transfer_id", *uploads.begin()}});
  browser->send({{"type", "close"}, {"session", session}});
  EXPECT_EQ(browser->read_text("session")["reason"], "closed");
  lost.reset();

  RawAgent second(port_);
  EXPECT_EQ(ends_after_log_in(second, identity), uploads);
  RawAgent third(port_);
  EXPECT_EQ(ends_after_log_in(third, identity), uploads);
  third.send(Msg::Heartbeat, R"({"beat":1})");
  while (!browser->read_machines()[0]["round_trip_ms"].is_number()) {
  }
  RawAgent fourth(port_);
  EXPECT_EQ(ends_after_log_in(fourth, identity), std::set<std::uint32_t>());
}

// Uploads kParts mebibytes to a named pipe. While nobody reads the pipe, it blocks the machine as a slow disk
// would. Calls `meanwhile` with a counter of the mebibytes that the browser has sent, then reads the pipe
// until the upload ends.
constexpr std::size_t kPart = 1 << 20, kParts = 96;
template <typename Meanwhile>
void TransferTest::upload_to_a_pipe(Meanwhile meanwhile) {
  ASSERT_EQ(::mkfifo(file("pipe").c_str(), 0600), 0);
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  const std::uint32_t transfer = number(*browser, session);
  std::atomic<std::size_t> sent{0};
  std::thread sender([&] {
    send_json(*browser, Msg::UploadBegin, session, {{"transfer_id", transfer}, {"path", file("pipe")}});
    const std::string part = chunk(transfer, std::string(kPart, 'x'));
    try {
      for (; sent < kParts; ++sent)
        browser->send_envelope(Msg::FileChunk, session, part);
      send_json(*browser, Msg::FileTransferEnd, session, {{"transfer_id", transfer}});
    } catch (const std::exception& failure) {
      ADD_FAILURE() << failure.what();
    }
  });
  EXPECT_TRUE(eventually([&] { return sent > 1; }));
  meanwhile(sent);

  std::ifstream pipe(file("pipe"), std::ios::binary);
  std::string read(kPart, '\0');
  std::size_t received = 0;
  while (pipe.read(read.data(), kPart) || pipe.gcount() > 0)
    received += static_cast<std::size_t>(pipe.gcount());
  EXPECT_EQ(received, kPart * kParts);
  sender.join();
}

TEST_F(TransferTest, RelayDoesNotBufferAnUploadWhileTheMachineDoesNotRead) {
  const std::size_t before = heap_bytes();
  upload_to_a_pipe([&](const std::atomic<std::size_t>& sent) {
    EXPECT_LT(settled_heap(), before + (24u << 20));
    EXPECT_LT(sent, kParts);
  });
}

TEST_F(TransferTest, BrowserThatUploadsToASlowMachineStaysConnected) {
  constexpr std::chrono::milliseconds kShort{50};
  const Limits usual = limits_;
  upload_to_a_pipe([&](const std::atomic<std::size_t>&) {
    settled_heap();
    on_relay([&] { limits_.slow_browser = limits_.idle_browser = kShort; });
    std::this_thread::sleep_for(10 * kShort);
    settled_heap();  // the relay checks its limits many times before this returns
    on_relay([&] { limits_ = usual; });
  });
}

TEST_F(TransferTest, RelayDoesNotBufferADownloadWhileTheBrowserDoesNotRead) {
  constexpr std::uintmax_t kFile = 192u << 20;
  std::ofstream(file("large")).close();
  std::filesystem::resize_file(file("large"), kFile);
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser);
  const std::uint32_t transfer = number(*browser, session);
  const std::size_t before = heap_bytes();
  send_json(*browser, Msg::DownloadRequest, session, {{"transfer_id", transfer}, {"path", file("large")}});

  EXPECT_TRUE(eventually([&] { return is_open(file("large")); }));
  EXPECT_LT(settled_heap(), before + (24u << 20));

  std::uintmax_t received = 0;
  for (std::uint32_t index = 0; received < kFile; ++index) {
    const auto payload = browser->read_envelope(Msg::FileChunk).payload;
    ASSERT_EQ(std::string(payload.begin(), payload.begin() + 8), big_endian(transfer) + big_endian(index));
    received += payload.size() - 8;
    browser->send({{"type", "stored"}, {"session", session}, {"transfer", transfer}, {"bytes", received}});
  }
  EXPECT_EQ(received, kFile);
  EXPECT_EQ(Json::parse(browser->read_envelope(Msg::FileTransferEnd).payload)["ok"], true);
}

}  // namespace
}  // namespace vlk::relay
