// The relay with browsers that do not read or answer.
#include "fakes/fakes.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using EnduranceTest = RelayTest;

TEST_F(EnduranceTest, MachineIsReadAgainAfterItsBrowserDidNotReadAndTheSessionIsHeld) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  const std::string cookie = log_in();
  auto slow = console(0, cookie);
  const std::uint32_t session = slow->open_session(id);
  on_relay([&] { limits_.slow_browser = std::chrono::milliseconds(300); });
  // The message is larger than the buffers at both ends of a connection.
  std::thread sender([&] { agent->send_text(Msg::FileChunk, session, std::string(48 << 20, 'x')); });
  EXPECT_TRUE(logged("browser of admin disconnected: does not read"));
  EXPECT_TRUE(logged("session " + std::to_string(session) + " is held"));
  sender.join();

  auto again = console(0, cookie);
  again->send({{"type", "resume"}, {"session", session}});
  const Json resumed = again->read_text("session");
  EXPECT_EQ(resumed["session"], session);
  EXPECT_EQ(resumed["state"], "accepted");
}

TEST_F(EnduranceTest, MachineIsOnlineAgainAfterItsBrowserStoppedAnsweringPings) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  browser->open_session(vantelink_fakes::saved_config().agent_id);
  // The test's browser answers pings only while it reads.
  on_relay([&] {
    limits_.idle_browser = std::chrono::milliseconds(100);
    limits_.hold = std::chrono::milliseconds(100);
  });
  EXPECT_TRUE(logged("ended: browser-gone"));
  wait_for_machine("Sæfari", "online");
}

TEST_F(EnduranceTest, BrowserIsPingedAgainAfterItAnsweredAPing) {
  auto browser = console();
  std::thread reader([&] {
    while (browser->read_machines().empty()) {
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
