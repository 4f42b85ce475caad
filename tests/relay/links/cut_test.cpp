// A representative has the connection of a machine closed.
#include "fakes/fakes.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using CutTest = RelayTest;

TEST_F(CutTest, MachineIsBackAfterItsConnectionWasClosedAndCanBeUsedAgain) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  browser->send({{"type", "cut"}, {"session", session}});
  EXPECT_EQ(browser->read_text("session")["reason"], "agent-gone");
  EXPECT_TRUE(logged("agent disconnected: closed at the request of admin"));
  wait_for_machine("Sæfari", "online");
  EXPECT_NE(browser->open_session(vantelink_fakes::saved_config().agent_id), session);
  EXPECT_EQ(stored("SELECT session FROM trail WHERE code = 'session.cut' AND actor = 'admin'"),
            (std::multiset<std::string>{std::to_string(session)}));
}

TEST_F(CutTest, ConnectionIsClosedWhileItsBrowserDoesNotReadWhatTheMachineSends) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console(4096);
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  std::thread sender([&] {
    for (int i = 0; i < 64; ++i)
      agent->send_text(Msg::FileChunk, session, std::string(256 << 10, 'x'));
  });
  settled_heap();  // the relay no longer reads from the machine
  browser->send({{"type", "cut"}, {"session", session}});
  EXPECT_TRUE(logged("ended: agent-gone"));
  sender.join();
  wait_for_machine("Sæfari", "online");
}

TEST_F(CutTest, StrangerCannotCloseTheConnection) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  auto stranger = console();
  for (const Json& message : {Json{{"type", "cut"}, {"session", session}}, Json{{"type", "cut"}},
                              Json{{"type", "cut"}, {"session", "x"}}}) {
    stranger->send(message);
    EXPECT_FALSE(stranger->read_text("error")["message"].get<std::string>().empty()) << message;
  }
  agent->send_text(Msg::Thumbnail, session, "still here");
  browser->read_envelope(Msg::Thumbnail);
}

}  // namespace
}  // namespace vlk::relay
