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
  auto browser = console();
  const std::uint32_t session = browser->open_session(vantelink_fakes::saved_config().agent_id);
  auto other = console();
  EXPECT_EQ(refusal(*other, session), "There is no such session.");
  EXPECT_EQ(refusal(*other, 0), "There is no such session.");
  // What the other browser says about the first one's download changes nothing.
  std::ofstream(folder_ / "read") << "content";
  browser->send({{"type", "transfer"}, {"session", session}, {"request", 5}});
  const Json transfer = browser->read_text("transfer")["transfer"];
  const Json wanted = {{"transfer_id", transfer}, {"path", folder_ / "read"}};
  browser->send_envelope(Msg::DownloadRequest, session, wanted.dump());
  other->send(
      {{"type", "stored"}, {"session", session}, {"transfer", transfer}, {"bytes", 7}, {"end", true}});
  other->send({{"type", "ping"}, {"id", 1}});
  other->read_text("pong");
  EXPECT_EQ(Json::parse(browser->read_envelope(Msg::FileTransferEnd).payload)["ok"], true);

  const auto waiting = connect_agent("Bíður", false);
  const Json machine = wait_for_machine("Bíður", "online");
  other->send({{"type", "open"}, {"agent", machine["id"]}});
  const Json asked = other->read_text("session");
  EXPECT_EQ(asked["state"], "waiting");
  EXPECT_EQ(refusal(*other, asked["session"]), "There is no such session.");
}

}  // namespace
}  // namespace vlk::relay
