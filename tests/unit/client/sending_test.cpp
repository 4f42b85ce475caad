// The messages that the client sends, also from several threads, to a real TLS peer.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "client/agent_client.h"
#include "unit/client/system_calls_seam.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

TEST_F(LinkTest, ChangedNameIsSentToTheServerAtOnceAndInTheNextLogIn) {
  ScriptedServer server(authority());
  make_client(server);
  client_->set_display_name("name before the start");
  EXPECT_TRUE(log_.lines().empty());
  client_->start();
  auto peer = server.accept_upgraded();
  EXPECT_NE(text_of(peer->read_until(Msg::Login)).find("name before the start"), std::string::npos);
  client_->set_display_name("Ægir");
  const Envelope update = peer->read_until(Msg::NameUpdate);
  EXPECT_EQ(text_of(update), R"({"name":"Ægir"})");
  EXPECT_EQ(update.session_id, 0u);
  peer->close();
  EXPECT_NE(text_of(server.accept_upgraded()->read_until(Msg::Login)).find("Ægir"), std::string::npos);
}

TEST_F(LinkTest, SendingWithoutAConnectionFails) {
  ScriptedServer server(authority());
  make_client(server);
  EXPECT_FALSE(client_->send_text(Msg::Heartbeat, 0, "x"));
  auto peer = connect(server);
  EXPECT_TRUE(client_->send_text(Msg::Heartbeat, 5, "y"));
  EXPECT_EQ(peer->read_until(Msg::Heartbeat).session_id, 5u);
  client_->stop();
  EXPECT_FALSE(client_->send_text(Msg::Heartbeat, 0, "z"));
}

TEST_F(LinkTest, ClipboardContentIsSentOnlyToAStreamingSession) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  client_->send_clipboard(reinterpret_cast<const unsigned char*>("a"), 1);
  peer->send_envelope(Msg::StreamStart, 41, R"({"max_fps":1})");
  ASSERT_TRUE(log_.wait_for("status 3 1"));
  client_->send_clipboard(reinterpret_cast<const unsigned char*>("b"), 1);
  const Envelope clip = peer->read_until(Msg::ClipboardData);
  EXPECT_EQ(clip.session_id, 41u);
  EXPECT_EQ(clip.flags, 0);
  EXPECT_EQ(text_of(clip), "b");
}

// A stream with the session number 0 enables the clipboard while no session counts as streaming.
TEST_F(LinkTest, ClipboardContentDuringAStreamOfSessionZeroIsNotSent) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_envelope(Msg::StreamStart, 0, R"({"max_fps":1})");
  ASSERT_TRUE(log_.wait_for("status 3 1"));
  EXPECT_EQ(vantelink_fakes::count("SetClipboardSessionActive true"), 1u);
  client_->send_clipboard(reinterpret_cast<const unsigned char*>("lost"), 4);
  peer->send_envelope(Msg::StreamStart, 41, R"({"max_fps":1})");
  ASSERT_TRUE(log_.wait_for("status 3 2"));
  client_->send_clipboard(reinterpret_cast<const unsigned char*>("b"), 1);
  EXPECT_EQ(text_of(peer->read_until(Msg::ClipboardData)), "b");
}

TEST_F(LinkTest, MessagesOfEightSendingThreadsDoNotMix) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  constexpr int kSenders = 8, kMessages = 60;
  std::vector<std::thread> senders;
  for (int sender = 0; sender < kSenders; ++sender) {
    senders.emplace_back([this, sender] {
      for (int i = 0; i < kMessages; ++i) {
        const std::string body(static_cast<std::size_t>(1 + (i * 7919) % 50000),
                               static_cast<char>('a' + sender));
        EXPECT_TRUE(client_->send_text(Msg::FileChunk, static_cast<std::uint32_t>(sender), body));
      }
    });
  }
  int counts[kSenders] = {};
  for (int i = 0; i < kSenders * kMessages; ++i) {
    if (i % 50 == 10) peer->send_envelope(Msg::Heartbeat, 0, "beat");
    if (i % 100 == 20) peer->update_keys();
    const Envelope one = peer->read_until(Msg::FileChunk);
    const auto index = static_cast<std::size_t>(counts[one.session_id]++ % kMessages);
    EXPECT_EQ(one.payload.size(), 1 + (index * 7919) % 50000);
    EXPECT_EQ(text_of(one).find_first_not_of(static_cast<char>('a' + one.session_id)), std::string::npos);
  }
  for (std::thread& sender : senders)
    sender.join();
}

// A message can be sent as soon as the handshake is complete. If that happens before the client has written
// its upgrade request, the request is not the first that the server reads.
TEST_F(LinkTest, KnownMessageSentBeforeTheUpgradeRequestMakesTheServerRefuseTheConnection) {
  constexpr int kKeySize = 16;  // the random bytes of the upgrade request
  ScriptedServer server(authority());
  std::atomic<int> requests{0};
  vantelink_test::SystemCalls calls;
  calls.random = [&](int size) {
    if (size != kKeySize || ++requests > 1) return;
    EXPECT_TRUE(client_->send_text(Msg::Heartbeat, 0, "early"));
  };
  const vantelink_test::ReplacedSystemCalls replaced(calls);
  RecordedClock clock(1);  // no third attempt, which this server would leave unanswered
  make_client(server, true, clock.clock());
  client_->start();
  auto refused = server.accept();
  ASSERT_TRUE(refused->handshake());
  EXPECT_THROW(refused->read_request(), vantelink_test::NotAGetRequest);
  refused->send("HTTP/1.1 400 Bad Request\r\n\r\n");
  refused->close();
  auto peer = server.accept_upgraded();
  peer->read_until(Msg::Login);
  peer->close();
  ASSERT_TRUE(clock.wait_for_sleeps(2));
  EXPECT_EQ(clock.sleeps(), (std::vector<std::int64_t>{500, 1000}))
      << "the refused connection counts as a failed attempt";
}

TEST_F(LinkTest, ReaderContinuesWhileAWriterIsBlocked) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_envelope(Msg::LoginResult, 0, "");
  ASSERT_TRUE(log_.wait_for("status 2 0"));
  std::atomic<bool> written{false};
  std::thread writer([&] {
    const std::string large(32 << 20, 'x');  // more than the buffers of the sockets
    client_->send_text(Msg::FileChunk, 1, large);
    written = true;
  });
  // Nothing reads the large message, but the client still reads the server's messages.
  for (int i = 2; i < 20; ++i) {
    peer->send_envelope(Msg::LoginResult, 0, "");
    ASSERT_TRUE(log_.wait_for("status 2 0", static_cast<std::size_t>(i)));
  }
  EXPECT_FALSE(written);
  client_->stop();
  writer.join();
}

}  // namespace
}  // namespace vlk::agent
