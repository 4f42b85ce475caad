// The link with a real TLS peer: connecting, authenticating, reconnecting, stopping, sending.
#include "client/agent_client.h"

#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "unit/support/link_fixture.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

using Lines = std::vector<std::string>;

TEST_F(LinkTest, SaysHelloAndLogsInWithAnIdentity) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  auto peer = server.accept();
  ASSERT_TRUE(peer->handshake());
  EXPECT_EQ(peer->server_name(), "localhost");
  const std::string request = peer->upgrade();
  EXPECT_EQ(request.rfind("GET /link HTTP/1.1\r\nHost: localhost\r\n", 0), 0u) << request;
  const Envelope hello = peer->read_envelope();
  EXPECT_EQ(hello.type, 1);
  EXPECT_EQ(hello.flags, 1);
  EXPECT_EQ(hello.session_id, 0u);
  EXPECT_EQ(text_of(hello), R"({"role":"agent","client_version":"0.1.0-scaffold","os":"windows"})");
  const Envelope login = peer->read_envelope();
  EXPECT_EQ(login.type, 18);
  EXPECT_EQ(text_of(login), R"({"agent_id":"id-1","secret":"secret-1","name":"Skúta \"Sæfari\""})");
  peer->send_envelope(Msg::LoginResult, 0, "");
  ASSERT_TRUE(log_.wait_for("notice Connected to Maravek"));
  EXPECT_EQ(log_.lines(), (Lines{"status 1 0", "status 1 0", "status 2 0", "notice Connected to Maravek"}));
}

TEST_F(LinkTest, EnrolsWithoutAWholeIdentity) {
  for (const auto& [id, secret] : {std::pair("", ""), {"id-1", ""}, {"", "secret-1"}}) {
    ScriptedServer server(authority());
    config_.agent_id = id;
    config_.agent_secret = secret;
    make_client(server, false);
    client_->start();
    auto peer = server.accept_upgraded();
    peer->read_until(Msg::Hello);
    const Envelope enroll = peer->read_envelope();
    EXPECT_EQ(enroll.type, 16);
    EXPECT_EQ(
        text_of(enroll),
        R"({"name":"Skúta \"Sæfari\"","machine_name":"Skúta \"Sæfari\"","os":"windows","hw_id":"guid"})");
    client_.reset();
  }
}

TEST_F(LinkTest, WaitsDoubleUpToThirtySecondsWhileNoServerAnswers) {
  std::uint16_t dead_port = 0;
  {
    const ScriptedServer gone(authority());
    make_client(gone);
    dead_port = gone.port();
  }
  ASSERT_NE(dead_port, 0);
  RecordedClock clock(8);
  client_ = std::make_unique<AgentClient>(config_, log_.callbacks(), clock.clock());
  client_->start();
  ASSERT_TRUE(clock.wait_for_sleeps(9));
  EXPECT_EQ(clock.sleeps(),
            (std::vector<std::int64_t>{500, 1000, 2000, 4000, 8000, 16000, 30000, 30000, 30000}));
  // The last wait is still on, and only its end lets the thread go.
  const std::future<void> stopped = std::async(std::launch::async, [this] { client_->stop(); });
  EXPECT_EQ(stopped.wait_for(Milliseconds(100)), std::future_status::timeout);
  clock.release();
  stopped.wait();
  const Lines lines = log_.lines();
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 4),
            (Lines{"status 1 0", "status 0 0", "status 1 0", "status 0 0"}));
}

TEST_F(LinkTest, DelayResetsOnlyBehindTheFirstWaitAfterAnUpgrade) {
  ScriptedServer server(authority());
  RecordedClock clock(6);
  make_client(server, true, clock.clock());
  client_->start();
  for (int i = 0; i < 3; ++i)
    server.accept()->abort();  // three failures: 500, 1000, 2000
  for (int i = 0; i < 3; ++i)
    server.accept_upgraded()->close();  // waits 4000, then 500, 500
  ASSERT_TRUE(clock.wait_for_sleeps(6));
  const std::vector<std::int64_t> sleeps = clock.sleeps();
  EXPECT_EQ(std::vector<std::int64_t>(sleeps.begin(), sleeps.begin() + 6),
            (std::vector<std::int64_t>{500, 1000, 2000, 4000, 500, 500}));
  clock.release();
}

TEST_F(LinkTest, StartTwiceMakesOneConnection) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  client_->start();
  auto peer = server.accept_upgraded();
  peer->read_until(Msg::Login);
  EXPECT_FALSE(server.has_client(Milliseconds(200)));
}

TEST_F(LinkTest, RefusedUpgradeEndsTheAttempt) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  auto peer = server.accept();
  ASSERT_TRUE(peer->handshake());
  peer->read_request();
  peer->send("HTTP/1.1 403 Forbidden\r\n\r\n");
  EXPECT_TRUE(peer->wait_closed());
  ASSERT_TRUE(log_.wait_for("status 0 0"));
}

TEST_F(LinkTest, DigitsInAHeaderAndAResponseInPiecesAreAnUpgrade) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  auto peer = server.accept();
  ASSERT_TRUE(peer->handshake());
  peer->read_request();
  const std::string response =
      "HTTP/1.1 403 Forbidden\r\nX-Trace: 9101\r\n" + std::string(5000, 'x') + "\r\n\r\n";
  for (const char byte : response)
    peer->send(std::string_view(&byte, 1));
  EXPECT_TRUE(log_.wait_for("status 1 0", 2)) << "hello and login were sent";
}

TEST_F(LinkTest, MessageBehindTheResponseIsHeardWithTheNextBytes) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  auto peer = server.accept();
  ASSERT_TRUE(peer->handshake());
  const std::vector<std::uint8_t> envelope = encode_envelope(Msg::LoginResult, 0, nullptr, 0, 1);
  const std::vector<std::uint8_t> frame = encode_frame(kWsBinary, envelope.data(), envelope.size(), false);
  peer->upgrade({reinterpret_cast<const char*>(frame.data()), frame.size()});
  peer->read_until(Msg::Login);
  ASSERT_TRUE(log_.wait_for("status 1 0", 2));
  EXPECT_EQ(log_.lines().back(), "status 1 0");
  peer->send_envelope(Msg::Heartbeat, 0, "x");
  peer->read_until(Msg::Heartbeat);
  EXPECT_TRUE(log_.wait_for("status 2 0"));
}

TEST_F(LinkTest, AnswersPingsAndHeartbeatsWithTheSameBytes) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_frame(kWsPing, "still there?");
  const WsFrame pong = peer->read_frame();
  EXPECT_EQ(pong.opcode, kWsPong);
  EXPECT_EQ(std::string(pong.payload.begin(), pong.payload.end()), "still there?");
  peer->send_envelope(Msg::Heartbeat, 9, "beat", 7);
  const Envelope echo = peer->read_envelope();
  EXPECT_EQ(echo.type, 4);
  EXPECT_EQ(echo.flags, 7);
  EXPECT_EQ(echo.session_id, 0u);
  EXPECT_EQ(text_of(echo), "beat");
}

TEST_F(LinkTest, FramesThatAreNoEnvelopeAreDroppedAndTheConnectionStays) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  std::string bytes("\x04\x00\x00\x00\x00\x00\x00\x00\x00\x05hello", 15);
  for (std::size_t length = 0; length < bytes.size(); ++length)
    peer->send_frame(kWsBinary, bytes.substr(0, length));
  peer->send_frame(kWsText, "text is not looked at");
  peer->send_frame(kWsPong, "nor is this");
  peer->send_frame(kWsBinary, bytes);
  EXPECT_EQ(text_of(peer->read_envelope()), "hello");
}

TEST_F(LinkTest, CloseFrameEndsTheConnectionWithoutOneInAnswer) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_frame(kWsClose, "\x03\xE8");
  EXPECT_TRUE(peer->wait_closed());
  ASSERT_TRUE(log_.wait_for("status 0 0"));
  EXPECT_EQ(peer->received().size(), 2u);
  auto again = server.accept_upgraded();
  EXPECT_EQ(again->read_envelope().type, 1);
}

TEST_F(LinkTest, BrokenFramingEndsTheConnection) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send(std::string_view("\x82\x7F\x00\x00\x00\x00\x01\x00\x00\x01", 10));
  EXPECT_TRUE(peer->wait_closed());
  auto again = server.accept_upgraded();
  again->read_until(Msg::Login);
  again->send_frame(kWsContinuation, "out of place");
  EXPECT_TRUE(again->wait_closed());
}

TEST_F(LinkTest, RandomBytesBehindTheUpgradeNeverStallIt) {
  ScriptedServer server(authority());
  RecordedClock clock;  // no pause between two attempts
  make_client(server, true, clock.clock());
  client_->start();
  for (unsigned seed = 0; seed < 100; ++seed) {
    auto peer = server.accept_upgraded();
    peer->read_until(Msg::Login);
    std::string bytes(1 << 20, '\0');
    std::uint64_t state = seed * 2654435761u + 1;
    for (char& byte : bytes) {
      state = state * 6364136223846793005u + 1442695040888963407u;
      byte = static_cast<char>(state >> 56);
    }
    peer->send(bytes);
    peer->close();
  }
  EXPECT_TRUE(log_.wait_for("status 0 0", 99));
}

TEST_F(LinkTest, NameChangeReachesTheServerAndTheNextLogin) {
  ScriptedServer server(authority());
  make_client(server);
  client_->set_display_name("nobody hears this");
  EXPECT_TRUE(log_.lines().empty());
  client_->start();
  auto peer = server.accept_upgraded();
  EXPECT_NE(text_of(peer->read_until(Msg::Login)).find("nobody hears this"), std::string::npos);
  client_->set_display_name("Ægir");
  const Envelope update = peer->read_until(Msg::NameUpdate);
  EXPECT_EQ(text_of(update), R"({"name":"Ægir"})");
  EXPECT_EQ(update.session_id, 0u);
  peer->close();
  EXPECT_NE(text_of(server.accept_upgraded()->read_until(Msg::Login)).find("Ægir"), std::string::npos);
}

TEST_F(LinkTest, SendsAreLostWithoutAConnection) {
  ScriptedServer server(authority());
  make_client(server);
  EXPECT_FALSE(client_->send_text(Msg::Heartbeat, 0, "x"));
  auto peer = connect(server);
  EXPECT_TRUE(client_->send_text(Msg::Heartbeat, 5, "y"));
  EXPECT_EQ(peer->read_until(Msg::Heartbeat).session_id, 5u);
  client_->stop();
  EXPECT_FALSE(client_->send_text(Msg::Heartbeat, 0, "z"));
}

TEST_F(LinkTest, ClipboardGoesOnlyToAStreamingSession) {
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

TEST_F(LinkTest, EightSendersAtOnceKeepTheirMessagesWhole) {
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
    const std::size_t index = counts[one.session_id]++ % kMessages;
    EXPECT_EQ(one.payload.size(), 1 + (index * 7919) % 50000);
    EXPECT_EQ(text_of(one).find_first_not_of(static_cast<char>('a' + one.session_id)), std::string::npos);
  }
  for (std::thread& sender : senders)
    sender.join();
}

TEST_F(LinkTest, ReaderGoesOnWhileAWriterIsBlocked) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_envelope(Msg::LoginResult, 0, "");
  ASSERT_TRUE(log_.wait_for("status 2 0"));
  std::atomic<bool> written{false};
  std::thread writer([&] {
    const std::string large(32 << 20, 'x');  // more than the sockets' buffers hold
    client_->send_text(Msg::FileChunk, 1, large);
    written = true;
  });
  // Nobody reads the large message; what the server says is heard all the same.
  for (int i = 2; i < 20; ++i) {
    peer->send_envelope(Msg::LoginResult, 0, "");
    ASSERT_TRUE(log_.wait_for("status 2 0", static_cast<std::size_t>(i)));
  }
  EXPECT_FALSE(written);
  client_->stop();
  writer.join();
}

TEST_F(LinkTest, StopEndsEveryPhase) {
  enum Phase { kBeforeHandshake, kBeforeUpgrade, kInUpgrade, kBeforeLogin, kOnline, kStreaming, kPhases };
  for (int phase = 0; phase < kPhases; ++phase) {
    ScriptedServer server(authority());
    make_client(server);
    client_->start();
    auto peer = server.accept();
    if (phase >= kBeforeUpgrade) {
      ASSERT_TRUE(peer->handshake());
    }
    if (phase == kInUpgrade) {
      peer->read_request();
      peer->send("HTTP/1.1 101 Sw");
    }
    if (phase >= kBeforeLogin) peer->upgrade();
    if (phase >= kOnline) peer->read_until(Msg::Login);
    if (phase == kStreaming) {
      peer->send_envelope(Msg::StreamStart, 1, R"({"max_fps":100})");
      peer->read_until(Msg::StreamFrame);
    }
    std::thread stopper([this] { client_->stop(); });
    // A handshake may have to end by itself: stop() need not know the socket yet.
    if (phase == kBeforeHandshake) peer->abort();
    stopper.join();
    client_.reset();
    EXPECT_EQ(log_.lines().back(), "status 0 0") << phase;
  }
}

TEST_F(LinkTest, ReconnectsManyTimesWithSendersAtWork) {
  ScriptedServer server(authority());
  RecordedClock clock;
  make_client(server, true, clock.clock());
  client_->start();
  std::atomic<bool> done{false};
  std::thread sender([&] {
    while (!done) {
      client_->send_text(Msg::Heartbeat, 0, "x");
      client_->set_display_name("name");
      client_->set_unattended(true);
    }
  });
  for (int i = 0; i < 30; ++i) {
    auto peer = server.accept_upgraded();
    if (i % 2 == 0) {
      peer->close();
    } else {
      peer->abort();
    }
  }
  done = true;
  sender.join();
}

}  // namespace
}  // namespace vlk::agent
