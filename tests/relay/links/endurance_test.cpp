// The relay with browsers that do not read or answer.
#include "fakes/fakes.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using EnduranceTest = RelayTest;

TEST_F(EnduranceTest, SessionOfABrowserThatDoesNotReadEndsAndTheMachineCanBeUsedAgain) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto slow = console();
  const std::uint32_t session = slow->open_session(id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(300);
    limits_.dead_browser = std::chrono::hours(1);  // keeps the slow browser connected
  });
  // The message is larger than the buffers at both ends of a connection.
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("session " + std::to_string(session) + " ended: slow"));

  auto other = console();
  other->send({{"type", "open"}, {"agent", id}});
  const std::uint32_t next = other->read_text("session")["session"];
  // The machine's answer arrives only if the relay reads from the machine again.
  EXPECT_TRUE(logged("session " + std::to_string(next) + " accepted"));
  sender.join();

  const Json ended = slow->read_text("session");
  EXPECT_EQ(ended["session"], session);
  EXPECT_EQ(ended["reason"], "slow");
}

TEST_F(EnduranceTest, BrowserThatStillDoesNotReadAfterItsSessionEndedIsDisconnected) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  on_relay([&] {
    limits_.slow_browser = std::chrono::milliseconds(100);
    limits_.dead_browser = std::chrono::milliseconds(300);
  });
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("browser of admin disconnected: does not read"));
  sender.join();
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, MachineIsOnlineAgainAfterItsBrowserStoppedAnsweringPings) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  browser->open_session(vantelink_fakes::saved_config().agent_id);
  // The test's browser answers pings only while it reads.
  on_relay([&] { limits_.idle_browser = std::chrono::milliseconds(100); });
  EXPECT_TRUE(logged("ended: browser-gone"));
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, BrowserIsPingedAgainAfterItAnsweredAPing) {
  auto browser = console();
  std::thread reader([&] {
    while (browser->read_text("agents")["agents"].empty()) {
    }
  });
  on_relay([&] { limits_.browser_ping = std::chrono::milliseconds(20); });
  // The relay sends a further ping only after the previous ping was answered.
  EXPECT_TRUE(eventually([&] { return browser->pings() > 2; }));
  const auto agent = connect_agent("Sæfari");
  reader.join();
}

}  // namespace
}  // namespace vlk::relay
