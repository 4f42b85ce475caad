// The connection with a real TLS peer: connecting, authenticating and reconnecting.
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <atomic>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "client/agent_client.h"
#include "unit/client/system_calls_seam.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

using Lines = std::vector<std::string>;

TEST_F(LinkTest, ClientWithAnIdentitySaysHelloAndLogsIn) {
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

TEST_F(LinkTest, ClientWithoutACompleteIdentityEnrols) {
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

TEST_F(LinkTest, RetryDelayDoublesUpToThirtySecondsWithoutAServer) {
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
  // stop() waits until the current delay has ended.
  const std::future<void> stopped = std::async(std::launch::async, [this] { client_->stop(); });
  EXPECT_EQ(stopped.wait_for(Milliseconds(100)), std::future_status::timeout);
  clock.release();
  stopped.wait();
  const Lines lines = log_.lines();
  EXPECT_EQ(Lines(lines.begin(), lines.begin() + 4),
            (Lines{"status 1 0", "status 0 0", "status 1 0", "status 0 0"}));
}

TEST_F(LinkTest, RetryDelayIsResetAfterTheFirstWaitThatFollowsAnUpgrade) {
  ScriptedServer server(authority());
  RecordedClock clock(6);
  make_client(server, true, clock.clock());
  client_->start();
  for (int i = 0; i < 3; ++i)
    server.accept()->abort();  // three failed attempts, with delays of 500, 1000 and 2000
  for (int i = 0; i < 3; ++i)
    server.accept_upgraded()->close();  // three upgraded connections, with delays of 4000, 500 and 500
  ASSERT_TRUE(clock.wait_for_sleeps(6));
  const std::vector<std::int64_t> sleeps = clock.sleeps();
  EXPECT_EQ(std::vector<std::int64_t>(sleeps.begin(), sleeps.begin() + 6),
            (std::vector<std::int64_t>{500, 1000, 2000, 4000, 500, 500}));
  clock.release();
}

TEST_F(LinkTest, SocketOfTheConnectionSendsWithoutDelay) {
  std::atomic<int> without_delay = 0;
  vantelink_test::SystemCalls calls;
  calls.set_option = [&](int level, int option) {
    without_delay += static_cast<int>(level == IPPROTO_TCP && option == TCP_NODELAY);
  };
  const vantelink_test::ReplacedSystemCalls replaced(calls);
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  const auto peer = server.accept_upgraded();
  EXPECT_EQ(without_delay, 2) << "one is the socket of the test's server";
  client_.reset();
}

TEST_F(LinkTest, StartingTheClientTwiceOpensOneConnection) {
  ScriptedServer server(authority());
  make_client(server);
  client_->start();
  client_->start();
  auto peer = server.accept_upgraded();
  peer->read_until(Msg::Login);
  EXPECT_FALSE(server.has_client(Milliseconds(200)));
}

TEST_F(LinkTest, RefusedUpgradeClosesTheConnection) {
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

TEST_F(LinkTest, ResponseWith101InAnyHeaderCountsAsAnUpgradeEvenIfReceivedByteByByte) {
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

TEST_F(LinkTest, ClientReconnectsManyTimesWhileAnotherThreadSends) {
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
    auto peer = server.accept();
    EXPECT_TRUE(peer->handshake());
    try {
      peer->upgrade();
    } catch (const vantelink_test::NotAGetRequest&) {
      // A message of the sender came before the upgrade request, which the server then refuses.
      peer->send("HTTP/1.1 400 Bad Request\r\n\r\n");
    }
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
