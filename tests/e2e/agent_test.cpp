// Tests of the shipped executable with a scripted server: enrolment, the picture, input, connections that
// fail, and the use of memory.
#include <gtest/gtest.h>

#include "e2e/support/agent_fixture.h"
#include "support/desk/desk_windows.h"

namespace {

using namespace vantelink_test;
using vlk::Envelope;
using vlk::Msg;

TEST_F(AgentTest, EnrolsLogsInWithItsIdentityAndForgetsTheIdentityWhenTheServerRefusesIt) {
  forget_settings(*desk);
  auto peer = start();
  EXPECT_EQ(text_of(peer->read_until(Msg::Hello)),
            R"({"role":"agent","client_version":"0.1.0-scaffold","os":"windows"})");
  const std::string enroll = text_of(peer->read_envelope());
  EXPECT_NE(enroll.find(R"("os":"windows","hw_id":")"), std::string::npos) << enroll;
  EXPECT_EQ(enroll.find(R"("hw_id":"")"), std::string::npos) << "the machine's GUID was not read";
  peer->send_envelope(Msg::EnrollResult, 0, R"({"agent_id":"id-7","agent_secret":"s-7"})");
  peer->settle();
  kill_agent();

  auto again = start();
  EXPECT_NE(text_of(again->read_until(Msg::Login)).find(R"({"agent_id":"id-7","secret":"s-7","name":")"),
            std::string::npos);
  again->send_envelope(Msg::Error, 0, R"({"code":"AUTH_FAILED","message":"unknown"})");
  EXPECT_TRUE(again->wait_closed());
  server_->accept_upgraded()->read_until(Msg::Enroll);
  EXPECT_EQ(desk->settings().find("id-7"), std::string::npos);
}

TEST_F(AgentTest, StreamsTheDesktopAsJpegAndAnswersAThumbnailRequest) {
  desk->set("Unattended", "REG_DWORD", "1");
  auto peer = start();
  peer->read_until(Msg::Hello);
  peer->send_envelope(Msg::SessionRequest, 5, R"({"rep_name":"Jón"})");
  EXPECT_EQ(text_of(peer->read_until(Msg::SessionAccept)), R"({"session":5})");
  peer->send_envelope(Msg::ThumbnailRequest, 5, "");
  const Envelope thumbnail = peer->read_until(Msg::Thumbnail);
  EXPECT_EQ(text_of(thumbnail).substr(0, 8), std::string("\0\1\x40\x01\xB4\0\xFF\xD8", 8));
  peer->send_envelope(Msg::StreamStart, 5, R"({"monitor_id":0,"max_fps":10})");
  EXPECT_EQ(text_of(peer->read_until(Msg::StreamConfig)),
            R"({"codec":"mjpeg","w":1280,"h":720,"monitor_id":0})");
  for (int i = 0; i < 10; ++i) {
    const std::string frame = text_of(peer->read_until(Msg::StreamFrame));
    ASSERT_GT(frame.size(), 1000u);
    EXPECT_EQ(frame.substr(8, 2), "\xFF\xD8");
    EXPECT_EQ(frame.substr(frame.size() - 2), "\xFF\xD9");
  }
  peer->send_envelope(Msg::MonitorSelect, 5, R"({"monitor_id":99})");
  EXPECT_EQ(text_of(peer->read_until(Msg::StreamConfig)),
            R"({"codec":"mjpeg","w":1280,"h":720,"monitor_id":99})");
  EXPECT_TRUE(logged("capture: no attached output for monitor hr=0x00000063\n"));
  peer->send_envelope(Msg::StreamStop, 5, "");
  peer->settle();
  EXPECT_THROW(peer->read_until(Msg::StreamFrame, Milliseconds(500)), std::runtime_error)
      << "the stream goes on after StreamStop";
}

TEST_F(AgentTest, InjectsInputOnlyWhileAStreamRuns) {
  desk->set("Unattended", "REG_DWORD", "1");
  auto peer = start();
  peer->read_until(Msg::Hello);
  const std::string key("\x01\x04\x01\x41\x00\x00\x00\x00", 8);
  peer->send_envelope(Msg::InputEvent, 5, key, 0);
  EXPECT_TRUE(becomes_logged("[inject] DROP: session not active\n"));
  peer->send_envelope(Msg::StreamStart, 5, R"({"max_fps":5})");
  peer->read_until(Msg::StreamFrame);
  peer->send_envelope(Msg::InputEvent, 5, key, 0);
  EXPECT_TRUE(becomes_logged("[inject] SendInput n=1 OK\n"));
  EXPECT_TRUE(logged("[inject] key down=1 vk=0x41 scan=0x0 ext=0\n"));
}

TEST_F(AgentTest, ReconnectsAfterGarbageAndBrokenConnections) {
  auto peer = start();
  for (unsigned seed = 1; seed <= 5; ++seed) {
    peer->read_until(Msg::Hello);
    std::string bytes(1 << 20, '\0');
    std::uint32_t state = seed;
    for (char& byte : bytes)
      byte = static_cast<char>((state = state * 1664525u + 1013904223u) >> 24);
    peer->send(bytes);
    peer->abort();
    peer = server_->accept_upgraded();
  }
  peer->read_until(Msg::Hello);
  EXPECT_TRUE(running());
}

TEST_F(AgentTest, RefusesACertificateThatDoesNotVerify) {
  const TestAuthority stranger;
  server_ = std::make_unique<ScriptedServer>(stranger);
  pid_ = desk->spawn({kAgent, "--host=localhost", "--port=" + std::to_string(server_->port())},
                     {"SSL_CERT_FILE=" + desk->folder() + "/ca.pem"});
  // The update check, which does not verify the certificate, may come first.
  bool refused = false;
  while (!refused) {
    const auto client = server_->accept();
    refused = !client->handshake();
    if (!refused) {
      ASSERT_TRUE(client->read_request().starts_with("GET /version.json "));
    }
  }
}

TEST_F(AgentTest, SecondCopyExitsAtOnceAndTheFirstKeepsItsConnection) {
  auto peer = start();
  peer->read_until(Msg::Hello);
  EXPECT_EQ(desk->exec({kAgent, "--unattended"}), 0);
  peer->settle();
}

TEST_F(AgentTest, UsesLessThan60MebibytesWhenIdle) {
  auto peer = start({"--unattended"});
  peer->read_until(Msg::Hello);
  peer->send_envelope(Msg::LoginResult, 0, "{}");
  peer->settle();
  // Private memory only: Wine's libraries are shared with other programs.
  const long kilobytes = memory_kilobytes(pid_, {"Private_Dirty:", "Private_Clean:"});
  RecordProperty("private_kilobytes", static_cast<int>(kilobytes));
  std::printf("idle: %ld KiB of private memory\n", kilobytes);
  EXPECT_GT(kilobytes, 0);
  EXPECT_LT(kilobytes, 60 * 1024);
}

}  // namespace
