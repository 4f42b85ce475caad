// Downloads whose bytes the browser stores more slowly than they arrive: the relay reads from the machine
// only as far ahead as the browser has confirmed.
#include <filesystem>
#include <fstream>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"
#include "relay/session/transfer_bytes.h"
#include "relay/session/transfers.h"

namespace vlk::relay {
namespace {

constexpr std::uintmax_t kFile = 64u << 20;
constexpr std::size_t kAgentChunk = 262'144;
constexpr std::uint32_t kHeld = Transfers::kDownloadWindow / kAgentChunk + 1;  // chunks that pass unconfirmed

class DownloadWindowTest : public RelayTest {
 protected:
  void SetUp() override {
    RelayTest::SetUp();
    // Each message to the browser makes the relay look again whether it may read from the machine, so none is
    // sent that the test does not cause. A heartbeat changes the list of machines.
    on_relay([&] { limits_.browser_alive = limits_.heartbeat = std::chrono::hours(1); });
    std::ofstream(folder_ / "large").close();
    std::filesystem::resize_file(folder_ / "large", kFile);
    agent_ = connect_agent("Sæfari");
    browser_ = console();
    session_ = browser_->open_session(vantelink_fakes::saved_config().agent_id);
  }
  std::uint32_t number() {
    browser_->send({{"type", "transfer"}, {"session", session_}, {"request", 5}});
    return browser_->read_text("transfer")["transfer"];
  }
  void request(Msg type, std::uint32_t transfer, const char* name) {
    const Json fields = {{"transfer_id", transfer}, {"path", folder_ / name}};
    browser_->send_envelope(type, session_, fields.dump());
  }
  void confirm(std::uint64_t bytes) {
    browser_->send({{"type", "stored"}, {"session", session_}, {"bytes", bytes}});
  }
  // Reads the next chunk, which must have this index.
  void expect_chunk(std::uint32_t index) {
    const auto payload = browser_->read_envelope(Msg::FileChunk).payload;
    ASSERT_EQ(std::string(payload.begin() + 4, payload.begin() + 8), big_endian(index));
  }

  std::unique_ptr<agent::AgentClient> agent_;
  std::unique_ptr<Browser> browser_;
  std::uint32_t session_ = 0;
};

TEST_F(DownloadWindowTest, RelayReadsNoFurtherThanTheWindowAheadOfTheConfirmedBytes) {
  const std::uint32_t transfer = number();
  confirm(0);
  request(Msg::DownloadRequest, transfer, "large");
  for (std::uint32_t index = 0; index < kHeld; ++index)
    expect_chunk(index);
  // Chunks that arrived between these answers would be skipped, and the next index would be a later one.
  for (int i = 0; i < 100; ++i) {
    browser_->send({{"type", "ping"}, {"id", i}});
    browser_->read_text("pong");
  }
  // The writing of the last answer also makes the relay look again; it has ended after these calls.
  for (int i = 0; i < 10; ++i)
    on_relay([] {});
  confirm(kFile);  // counts as the bytes that were sent so far
  for (std::uint32_t index = kHeld; index < kFile / kAgentChunk; ++index) {
    expect_chunk(index);
    confirm((index + 1) * kAgentChunk);
  }
  EXPECT_EQ(Json::parse(browser_->read_envelope(Msg::FileTransferEnd).payload)["ok"], true);
}

TEST_F(DownloadWindowTest, BrowserThatConfirmsNothingReceivesTheWholeDownload) {
  const std::uint32_t transfer = number();
  request(Msg::DownloadRequest, transfer, "large");
  for (std::uint32_t index = 0; index < kFile / kAgentChunk; ++index)
    expect_chunk(index);
}

TEST_F(DownloadWindowTest, HeldDownloadAndAnUploadDoNotWaitForEachOther) {
  const std::uint32_t down = number();
  const std::uint32_t up = number();
  confirm(0);
  request(Msg::DownloadRequest, down, "large");
  const auto envelope = [&](Msg type, const std::string& payload) {
    const auto bytes = encode_envelope(type, session_, reinterpret_cast<const unsigned char*>(payload.data()),
                                       payload.size(), 1);
    return std::string(bytes.begin(), bytes.end());
  };
  std::uint32_t index = 0;
  while (index < kHeld)
    expect_chunk(index++);
  std::vector<std::string> messages = {
      envelope(Msg::UploadBegin, Json{{"transfer_id", up}, {"path", folder_ / "upload"}}.dump())};
  for (int i = 0; i < 48; ++i) {
    // The machine's answer to a listing waits for the download, and the machine reads nothing until then.
    messages.push_back(envelope(Msg::DirListRequest, R"({"path":"/"})"));
    messages.push_back(envelope(Msg::FileChunk, chunk(up, std::string(1 << 20, 'x'))));
  }
  browser_->send_while_reading(messages, [&](Msg type, const std::string& payload) {
    if (type != Msg::FileChunk) return;
    EXPECT_EQ(payload.substr(4, 4), big_endian(index++));
  });
  confirm(kFile);
  for (; index < kFile / kAgentChunk; ++index) {
    expect_chunk(index);
    confirm((index + 1) * kAgentChunk);
  }
}

TEST_F(DownloadWindowTest, ConfirmationWithoutNumbersIsRefused) {
  for (const Json& message :
       {Json{{"type", "stored"}}, Json{{"type", "stored"}, {"session", session_}, {"bytes", -1}}}) {
    browser_->send(message);
    browser_->read_text("error");
  }
}

}  // namespace
}  // namespace vlk::relay
