// Browsers on slow connections. The limits are shorter than usual, and the connections accordingly faster.
#include <cstdint>

#include "relay/base/clock.h"
#include "relay/links/raw_session.h"
#include "relay/relay_fixture.h"
#include "relay/session/transfer_bytes.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using SlowLineTest = RelayTest;

TEST_F(SlowLineTest, SessionOfABrowserThatReadsSlowlyAndSteadilyContinues) {
  constexpr milliseconds kLimit{1500};
  auto browser = console(4096);
  RawSession session(port_, *browser);
  on_relay([&] { limits_.slow_browser = kLimit; });
  constexpr std::size_t kLarge = 16u << 20;
  session.send(Msg::ClipboardData, std::string(kLarge, 'x'));
  // About 160 kB/s. At this rate the system's send buffer accepts no new bytes for several seconds.
  const auto end = Clock::now() + 4 * kLimit;
  while (Clock::now() < end) {
    ASSERT_TRUE(browser->read_piece());
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_EQ(browser->read_binary().size, kLarge + kEnvelopeHeaderSize);
  session.send(Msg::StreamFrame, "picture");
  EXPECT_EQ(browser->read_binary().type, Msg::StreamFrame);
}

TEST_F(SlowLineTest, PicturesForABrowserThatDoesNotReadAreDroppedAndTheMachineIsReadOn) {
  auto browser = console(4096);
  RawSession session(port_, *browser);
  const auto picture = [](char number, char unit) {
    return std::string(8, number) + std::string("\0\0\1", 3) + unit + std::string(64 * 1024, 'x');
  };
  constexpr char kKey = 0x65, kDelta = 0x41;
  // Many times what fits into the buffers of the relay and of the system.
  constexpr int kPictures = 600;
  for (int i = 0; i < kPictures; ++i)
    session.send(Msg::StreamFrame, picture('a', i == 0 ? kKey : kDelta));
  session.read(Msg::KeyframeRequest);
  session.send(Msg::StreamFrame, picture('b', kKey));
  int old = 0;
  while (browser->read_envelope(Msg::StreamFrame).payload[0] == 'a')
    ++old;
  EXPECT_LT(old, kPictures / 2);
  session.send(Msg::StreamFrame, picture('c', kDelta));
  EXPECT_EQ(browser->read_envelope(Msg::StreamFrame).payload[0], 'c');
}

TEST_F(SlowLineTest, KeysDoNotWaitForADownloadThatTheBrowserDoesNotRead) {
  auto browser = console(4096);
  RawSession session(port_, *browser);
  browser->send({{"type", "transfer"}, {"session", session.number()}, {"request", 1}});
  const auto transfer = browser->read_text("transfer")["transfer"].get<std::uint32_t>();
  browser->send_envelope(Msg::DownloadRequest, session.number(),
                         Json{{"transfer_id", transfer}, {"path", "a"}}.dump());
  session.read(Msg::DownloadRequest);
  const std::string chunk = big_endian(transfer) + big_endian(0) + std::string(256 * 1024, 'x');
  // More than the relay's queue holds, and less than what the buffers of the system hold besides.
  for (int i = 0; i < 12; ++i)
    session.send(Msg::FileChunk, chunk);
  for (char key = 'a'; key < 'e'; ++key) {
    const std::string input{1, 4, 1, key, 0, 0, 0, 0};
    browser->send_envelope(Msg::InputEvent, session.number(), input);
    EXPECT_EQ(session.read(Msg::InputEvent).payload, Bytes(input.begin(), input.end()));
  }
}

TEST_F(SlowLineTest, BrowserIsReadAndItsKeysOvertakeAnUploadThatTheMachineDoesNotRead) {
  constexpr std::uint64_t kAhead = 3u << 20, kChunk = 256 * 1024;
  auto browser = console();
  RawSession session(port_, *browser);
  browser->send({{"type", "transfer"}, {"session", session.number()}, {"request", 1}});
  const auto transfer = browser->read_text("transfer")["transfer"].get<std::uint32_t>();
  browser->send_envelope(Msg::UploadBegin, session.number(),
                         Json{{"transfer_id", transfer}, {"path", "a"}, {"size", 1}}.dump());
  std::uint64_t sent = 0, passed = 0;
  // Until the systems take no more.
  for (int unchanged = 0; unchanged < 100; ++unchanged) {
    if (sent - passed < kAhead) {
      browser->send_envelope(Msg::FileChunk, session.number(), chunk(transfer, std::string(kChunk, 'x')));
      sent += kChunk;
    }
    browser->send({{"type", "ping"}, {"id", 1}});
    // The relay reads the ping, so it also reads keys.
    for (Json message = {{"type", ""}}; message["type"] != "pong";) {
      const Browser::Message arrived = browser->read_message();
      if (!arrived.text) continue;
      message = Json::parse(arrived.bytes);
      if (message["type"] != "uploaded") continue;
      passed = message["bytes"];
      unchanged = 0;
    }
  }
  const std::string input{1, 4, 1, 'A', 0, 0, 0, 0};
  browser->send_envelope(Msg::InputEvent, session.number(), input);
  std::uint64_t before_key = 0;
  for (Envelope message; message.type != static_cast<std::uint8_t>(Msg::InputEvent);) {
    message = session.agent().read();
    if (message.type == static_cast<std::uint8_t>(Msg::FileChunk)) before_key += message.payload.size() - 8;
  }
  // The machine's system has some bytes. Of the rest, the key waits for 64 KiB, and so many can be
  // unreported.
  EXPECT_LT(before_key, passed + 128 * 1024);
  EXPECT_GT(sent, before_key + (2u << 20));
}

TEST_F(SlowLineTest, BrowserToWhichNothingElseIsSentGetsAliveMessages) {
  on_relay([&] { limits_.browser_alive = milliseconds(50); });
  auto browser = console();
  for (int i = 0; i < 3; ++i)
    browser->read_text("alive");
}

}  // namespace
}  // namespace vlk::relay
