// Whole sessions between browsers and the agent's client, through a relay with real connections.
#include "fakes/fakes.h"
#include "relay/links/raw_session.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

class SessionTest : public RelayTest {
 protected:
  // Opens a session with the machine and returns its number once it is accepted.
  static std::uint32_t open(Browser& browser, const std::string& id) {
    browser.send({{"type", "open"}, {"agent", id}});
    const Json waiting = browser.read_text("session");
    EXPECT_EQ(waiting["state"], "waiting");
    const Json accepted = browser.read_text("session");
    EXPECT_EQ(accepted["state"], "accepted");
    EXPECT_EQ(accepted["session"], waiting["session"]);
    return accepted["session"];
  }
};

TEST_F(SessionTest, AgentEnrolsAndIsListed) {
  const auto agent = connect_agent("Sæfari");
  const Json machine = wait_for_machine("Sæfari", "online");
  EXPECT_EQ(machine["machine"], "Sæfari");
  EXPECT_EQ(machine["os"], "windows");
  EXPECT_EQ(vantelink_fakes::saved_config().agent_id, machine["id"]);
  EXPECT_FALSE(vantelink_fakes::saved_config().agent_secret.empty());
}

TEST_F(SessionTest, IdentityIsValidAfterARestartOfTheRelayAndAnAgentWithAWrongSecretEnrolsAgain) {
  connect_agent("Sæfari")->stop();
  agent::AgentConfig config = vantelink_fakes::saved_config();
  stop();
  start();
  config.server_port = port_;
  {
    agent::AgentClient client(config, {});
    client.start();
    EXPECT_EQ(wait_for_machine("Sæfari", "online")["id"], config.agent_id);
  }
  config.agent_secret = "wrong";
  config.display_name = "Impostor";
  agent::AgentClient client(config, {});
  client.start();
  EXPECT_NE(wait_for_machine("Impostor", "online")["id"], config.agent_id);
  EXPECT_TRUE(logged("wrong secret"));
}

TEST_F(SessionTest, NewerLogInOfAnAgentEndsTheSessionOfItsOlderConnection) {
  const auto first = connect_agent("Sæfari");
  agent::AgentConfig config = vantelink_fakes::saved_config();
  auto browser = console();
  open(*browser, config.agent_id);
  first->set_display_name("Sæfari");
  agent::AgentClient second(config, {});
  second.start();
  const Json ended = browser->read_text("session");
  EXPECT_EQ(ended["state"], "ended");
  EXPECT_EQ(ended["reason"], "replaced");
}

TEST_F(SessionTest, RenamedAgentIsListedWithItsNewName) {
  const auto agent = connect_agent("before");
  agent->set_display_name("Ægir \"quoted\"");
  EXPECT_EQ(wait_for_machine("Ægir \"quoted\"", "online")["machine"], "before");
}

TEST_F(SessionTest, SessionPassesEnvelopesInBothDirectionsUntilItIsClosed) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto browser = console();
  const std::uint32_t session = open(*browser, id);
  EXPECT_NE(session, 0u);
  browser->send_envelope(Msg::StreamStart, session, R"({"max_fps":30})");
  const Envelope config = browser->read_envelope(Msg::StreamConfig);
  EXPECT_EQ(config.session_id, session);
  const Envelope frame = browser->read_envelope(Msg::StreamFrame);
  EXPECT_EQ(std::string(frame.payload.begin() + 8, frame.payload.end()), "jpeg");
  browser->send_envelope(Msg::InputEvent, session, "abc");
  EXPECT_TRUE(vantelink_fakes::wait_for("InjectInputBatch 3"));
  browser->send({{"type", "close"}, {"session", session}});
  const Json ended = browser->read_text("session");
  EXPECT_EQ(ended["state"], "ended");
  EXPECT_EQ(ended["reason"], "closed");
  EXPECT_TRUE(vantelink_fakes::wait_for("SetInputSessionActive false"));
  EXPECT_NE(open(*browser, id), session) << "each session has a new number";
}

TEST_F(SessionTest, RestartOfAMachineIsRecordedInTheAuditTrail) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto browser = console();
  const std::uint32_t session = open(*browser, id);
  browser->send_envelope(Msg::Reboot, session, "{}");
  EXPECT_EQ(browser->read_text("session")["state"], "ended");
  const std::multiset<std::string> row = {"admin " + id + ' ' + std::to_string(session)};
  EXPECT_TRUE(eventually([&] {
    return stored(
               "SELECT actor || ' ' || machine || ' ' || session FROM trail WHERE "
               "code = 'control.restart'") == row;
  }));
}

TEST_F(SessionTest, MessageFromTheBrowserIsRefusedBeforeTheLocalUserAccepts) {
  const auto agent = connect_agent("Sæfari", false);
  auto browser = console();
  browser->send({{"type", "open"}, {"agent", vantelink_fakes::saved_config().agent_id}});
  const std::uint32_t session = browser->read_text("session")["session"];
  browser->send_envelope(Msg::StreamStart, session, "");
  EXPECT_EQ(browser->read_text("error")["message"], "The session has not been accepted.");
  agent->reject_session(session, "declined");
  const Json ended = browser->read_text("session");
  EXPECT_EQ(ended["reason"], "declined");
  EXPECT_EQ(vantelink_fakes::count("SetInputSessionActive true"), 0u);
}

TEST_F(SessionTest, UnansweredSessionRequestEndsAfterItsTimeLimit) {
  stop();
  limits_.consent = std::chrono::milliseconds(50);
  start();
  const auto agent = connect_agent("Sæfari", false);
  auto browser = console();
  browser->send({{"type", "open"}, {"agent", vantelink_fakes::saved_config().agent_id}});
  browser->read_text("session");
  EXPECT_EQ(browser->read_text("session")["reason"], "no-answer");
}

TEST_F(SessionTest, SecondRepresentativeReceivesTheNameOfTheRepresentativeWhoUsesTheMachine) {
  const auto agent = connect_agent("Sæfari");
  const std::string id = vantelink_fakes::saved_config().agent_id;
  auto first = console();
  open(*first, id);
  auto second = console();
  second->send({{"type", "open"}, {"agent", id}});
  EXPECT_NE(second->read_text("error")["message"].get<std::string>().find("admin"), std::string::npos);
}

TEST_F(SessionTest, SessionOfABrowserThatDoesNotComeBackEnds) {
  on_relay([&] { limits_.hold = std::chrono::milliseconds(50); });
  const auto agent = connect_agent("Sæfari");
  {
    auto browser = console();
    const std::uint32_t session = open(*browser, vantelink_fakes::saved_config().agent_id);
    browser->send_envelope(Msg::StreamStart, session, "");
    browser->read_envelope(Msg::StreamFrame);
  }
  EXPECT_TRUE(vantelink_fakes::wait_for("SetInputSessionActive false"));
  wait_for_machine("Sæfari", "online");
}

TEST_F(SessionTest, BrowserThatComesBackSeesTheStreamOfItsSessionWithoutTheMachine) {
  const auto agent = connect_agent("Sæfari");
  const std::string cookie = log_in();
  std::uint32_t session = 0;
  {
    auto browser = console(0, cookie);
    session = open(*browser, vantelink_fakes::saved_config().agent_id);
    browser->send_envelope(Msg::StreamStart, session, "");
    browser->read_envelope(Msg::StreamFrame);
  }
  auto back = console(0, cookie);
  back->send({{"type", "resume"}, {"session", session}});
  const Json resumed = back->read_text("session");
  EXPECT_EQ(resumed["state"], "accepted");
  EXPECT_EQ(resumed["streaming"], true);
  back->read_envelope(Msg::StreamConfig);
  back->read_envelope(Msg::StreamFrame);
  EXPECT_EQ(vantelink_fakes::count("SetInputSessionActive false"), 0u);
}

TEST_F(SessionTest, MessagesAboutTheReturnThatAreIncompleteOrTooLongAreRefused) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser, vantelink_fakes::saved_config().agent_id);
  const auto refusal = [&](const Json& message) {
    browser->send(message);
    return browser->read_text("error")["message"];
  };
  const char* const no_number = "The session's number is missing.";
  EXPECT_EQ(refusal({{"type", "resume"}}), no_number);
  EXPECT_EQ(refusal({{"type", "resume"}, {"session", -1}}), no_number);
  EXPECT_EQ(refusal({{"type", "resume"}, {"session", session}}), "This browser has the session already.");
  const auto choices = [&](const Json& value) {
    return Json{{"type", "choices"}, {"session", session}, {"choices", value}};
  };
  for (const Json& value : {Json(1), Json("text"), Json::array(), Json()})
    EXPECT_EQ(refusal(choices(value)), "The session's number or the choices are missing.");
  EXPECT_EQ(refusal(choices({{"a", std::string(limits_.choices, 'x')}})), "The choices are too long.");
}

TEST_F(SessionTest, SessionEndsWhenTheAgentDisconnects) {
  auto agent = connect_agent("Sæfari");
  auto browser = console();
  open(*browser, vantelink_fakes::saved_config().agent_id);
  agent->stop();
  EXPECT_EQ(browser->read_text("session")["reason"], "agent-gone");
  wait_for_machine("Sæfari", "offline");
}

TEST_F(SessionTest, MessagesForSessionsOfOtherBrowsersAndMessagesOfTypesForTheRelayAreRefused) {
  const auto agent = connect_agent("Sæfari");
  auto owner = console();
  const std::uint32_t session = open(*owner, vantelink_fakes::saved_config().agent_id);
  auto other = console();
  other->send_envelope(Msg::InputEvent, session, "x");
  EXPECT_EQ(other->read_text("error")["message"], "There is no such session.");
  other->send({{"type", "close"}, {"session", session}});
  owner->send_envelope(Msg::SessionEnd, session, "");
  EXPECT_NE(owner->read_text("error")["message"], "");
  owner->send_envelope(Msg::Error, session, R"({"code":"AUTH_FAILED"})");
  EXPECT_NE(owner->read_text("error")["message"], "");
  owner->send_envelope(Msg::InputEvent, session, "still open");
  EXPECT_TRUE(vantelink_fakes::wait_for("InjectInputBatch 10"));
  EXPECT_EQ(vantelink_fakes::count("InjectInputBatch 1"), 0u);
}

TEST_F(SessionTest, HeartbeatsMeasureTheRoundTripToTheAgent) {
  stop();
  limits_.heartbeat = std::chrono::milliseconds(20);
  start();
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  for (;;) {
    const Json machines = browser->read_machines();
    if (!machines.empty() && machines[0]["round_trip_ms"].is_number()) break;
    browser->send({{"type", "ping"}, {"id", 5}});
    EXPECT_EQ(browser->read_text("pong")["id"], 5);
    agent->set_display_name("Sæfari");  // causes the list to be sent again
  }
}

TEST_F(SessionTest, LargeMessagesToASlowBrowserArriveCompletely) {
  const auto agent = connect_agent("Sæfari");
  auto browser = console();
  const std::uint32_t session = open(*browser, vantelink_fakes::saved_config().agent_id);
  const std::string large(6 << 20, 'x');
  std::thread sender([&] {
    for (int i = 0; i < 8; ++i)
      agent->send_text(Msg::FileChunk, session, large);
  });
  for (int i = 0; i < 8; ++i)
    EXPECT_EQ(browser->read_envelope(Msg::FileChunk).payload.size(), large.size());
  sender.join();
}

TEST_F(SessionTest, ColoursAndOrderAreDeclaredInH264ParameterSetsAndJpegFramesStayUnchanged) {
  using namespace std::string_literals;
  auto browser = console();
  RawSession session(port_, *browser);
  const std::string stamp(8, 't');
  const std::string start = "\0\0\0\1"s;
  const std::string set = "\x67\x4d\x4c\x14\x8c\x8d\x40\xa0\xcb\xce\x80"s;
  const std::string in_order = "\x67\x4d\x4c\x14\x8c\x8d\x40\xa0\xcb\xcf\x35\x01\x0d\x06\x07\x84\x02\x15"s;
  const std::string order_unknown = "\x67\x4d\x4c\x14\x8c\x8d\x40\xa0\xcb\xcf\x35\x01\x0d\x06\x02"s;
  const std::string key_slice = start + "\x65\x88\x80"s;
  const std::string b_slice = start + "\x41\x9c\x80"s;  // first_mb_in_slice 0, slice_type 6
  const auto passed = [&](const std::string& picture) {
    session.send(Msg::StreamFrame, stamp + picture);
    const Envelope frame = browser->read_envelope(Msg::StreamFrame);
    return std::string(frame.payload.begin(), frame.payload.end());
  };

  EXPECT_EQ(passed("\xff\xd8" + start + set), stamp + "\xff\xd8" + start + set);
  EXPECT_EQ(passed(""), stamp);
  EXPECT_EQ(passed(start + set + key_slice), stamp + start + in_order + key_slice);
  EXPECT_EQ(passed(b_slice), stamp + b_slice);
  session.read(Msg::KeyframeRequest);
  EXPECT_EQ(passed(start + set + key_slice), stamp + start + order_unknown + key_slice);
  // A new stream may come from another encoder, so its first parameter set declares the order again.
  session.send(Msg::StreamConfig, R"({"codec":"h264","w":320,"h":180,"monitor_id":0})");
  EXPECT_EQ(passed(start + set + key_slice), stamp + start + in_order + key_slice);
}

}  // namespace
}  // namespace vlk::relay
