// A relay whose database is busy: who waits, who does not, and what is refused.
#include <future>

#include "relay/relay_fixture.h"
#include "support/peers/raw_agent.h"

namespace vlk::relay {
namespace {

constexpr std::size_t kFullQueue = 20'000;

class BusyRelayTest : public RelayTest {};

TEST_F(BusyRelayTest, LogInWaitsForTheDatabaseAndASessionDoesNot) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session =
      browser->open_session(wait_for_machine("Sæfari", "online")["id"].get<std::string>());
  auto hold = hold_database(1);
  auto waiting = std::async(std::launch::async, [&] { return log_in(); });
  for (int i = 0; i < 100; ++i) {
    agent->send_text(Msg::ClipboardData, session, "\1text");
    EXPECT_EQ(browser->read_envelope(Msg::ClipboardData).payload.size(), 5u);
  }
  EXPECT_EQ(waiting.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
  hold.reset();
  EXPECT_FALSE(waiting.get().empty());
}

TEST_F(BusyRelayTest, FullQueueRefusesLogInsUntilLaterAndHoldsAgentsBack) {
  auto hold = hold_database(kFullQueue);
  const std::string body = Json{{"name", "admin"}, {"password", kPassword}}.dump();
  const std::string reply = Browser(port_).raw(
      "POST /api/login HTTP/1.1\r\nHost: localhost\r\nOrigin: https://localhost\r\n"
      "Connection: close\r\nContent-Length: " +
      std::to_string(body.size()) + "\r\n\r\n" + body);
  EXPECT_EQ(reply.find("HTTP/1.1 503 "), 0u) << reply;
  EXPECT_NE(reply.find("\r\nRetry-After: 5\r\n"), std::string::npos) << reply;
  vantelink_test::RawAgent agent(port_);
  agent.send(Msg::Hello, R"({"role":"agent"})");
  agent.send(Msg::Enroll, R"({"name":"refused"})");
  EXPECT_EQ(Json::parse(agent.read().payload)["code"], "RELAY_FAILED");
  hold.reset();
  EXPECT_TRUE(eventually([&] { return !log_in().empty(); }));
  EXPECT_TRUE(stored("SELECT id FROM machines").empty());
}

}  // namespace
}  // namespace vlk::relay
