// What a browser says about the transfers of a session that is not its own.
#include <fstream>

#include "fakes/fakes.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

class ForeignTransfersTest : public RelayTest {};

TEST_F(ForeignTransfersTest, NumberIsRefusedForAnotherBrowsersSessionAndForOneThatIsNotAccepted) {
  const auto agent = connect_agent("Sæfari");
  const auto refusal = [](Browser& browser, std::uint32_t session) {
    browser.send({{"type", "transfer"}, {"session", session}, {"request", 5}});
    const Json answer = browser.read_text("error");
    EXPECT_EQ(answer["request"], 5);
    return answer["message"].get<std::string>();
  };
  const std::string cookie = log_in();
  auto browser = console(0, cookie);
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  auto other = console();
  EXPECT_EQ(refusal(*other, session), "There is no such session.");
  EXPECT_EQ(refusal(*other, 0), "There is no such session.");
  // The first browser does not confirm the end of its download, and the other one's confirmation changes
  // nothing.
  std::ofstream(folder_ / "read") << "content";
  browser->send({{"type", "transfer"}, {"session", session}, {"request", 5}});
  const Json transfer = browser->read_text("transfer")["transfer"];
  const Json wanted = {{"transfer_id", transfer}, {"path", folder_ / "read"}};
  browser->send_envelope(Msg::DownloadRequest, session, wanted.dump());
  EXPECT_EQ(Json::parse(browser->read_envelope(Msg::FileTransferEnd).payload)["ok"], true);
  other->send(
      {{"type", "stored"}, {"session", session}, {"transfer", transfer}, {"bytes", 7}, {"end", true}});
  other->send({{"type", "ping"}, {"id", 1}});
  other->read_text("pong");
  browser.reset();
  EXPECT_TRUE(logged("session " + std::to_string(session) + " is held"));
  browser = console(0, cookie);
  browser->send({{"type", "resume"}, {"session", session}});
  const Json open = browser->read_text("session")["transfers"];
  ASSERT_EQ(open.size(), 1u);
  EXPECT_EQ(open[0]["transfer"], transfer);

  const auto waiting = connect_agent("Bíður", false);
  const Json machine = wait_for_machine("Bíður", "online");
  other->send({{"type", "open"}, {"agent", machine["id"]}});
  const Json asked = other->read_text("session");
  EXPECT_EQ(asked["state"], "waiting");
  EXPECT_EQ(refusal(*other, asked["session"]), "There is no such session.");
}

}  // namespace
}  // namespace vlk::relay
