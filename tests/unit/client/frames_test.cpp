// The frames that the client receives, from a real TLS peer.
#include <gtest/gtest.h>

#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

TEST_F(LinkTest, MessageReceivedWithTheUpgradeResponseIsHandledWhenTheNextBytesArrive) {
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

TEST_F(LinkTest, PingsAndHeartbeatsAreAnsweredWithTheSameBytes) {
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

TEST_F(LinkTest, FramesWithoutACompleteEnvelopeAreIgnored) {
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

TEST_F(LinkTest, CloseFrameEndsTheConnectionWithoutACloseFrameInReply) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send_frame(kWsClose, "\x03\xE8");
  EXPECT_TRUE(peer->wait_closed());
  ASSERT_TRUE(log_.wait_for("status 0 0"));
  EXPECT_EQ(peer->received().size(), 2u);
  auto again = server.accept_upgraded();
  EXPECT_EQ(again->read_envelope().type, 1);
}

TEST_F(LinkTest, InvalidFramingEndsTheConnection) {
  ScriptedServer server(authority());
  auto peer = connect(server);
  peer->send(std::string_view("\x82\x7F\x00\x00\x00\x00\x01\x00\x00\x01", 10));
  EXPECT_TRUE(peer->wait_closed());
  auto again = server.accept_upgraded();
  again->read_until(Msg::Login);
  again->send_frame(kWsContinuation, "out of place");
  EXPECT_TRUE(again->wait_closed());
}

TEST_F(LinkTest, RandomBytesAfterTheUpgradeNeverBlockTheClient) {
  ScriptedServer server(authority());
  RecordedClock clock;  // a clock without a pause between two connections
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

}  // namespace
}  // namespace vlk::agent
