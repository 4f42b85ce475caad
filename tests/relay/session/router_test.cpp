// The router's decision about messages of each type, in each state of a session and in both directions.
#include <map>

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using Kind = Route::Kind;

// The state of a message's session, and whether the session belongs to the sender of the message.
enum class Belonging { None, OfAnother, Asked, Accepted };
constexpr Belonging kBelongings[] = {Belonging::None, Belonging::OfAnother, Belonging::Asked,
                                     Belonging::Accepted};

class RouterTest : public PartsTest {
 protected:
  RouterTest() : agent_(log_in("a")), browser_(browse("ada")) {}

  std::uint32_t session_that_is(Belonging belonging) {
    switch (belonging) {
      case Belonging::None:
        return 0;
      case Belonging::OfAnother:
        return accepted(browse("ben"), log_in("b"));
      case Belonging::Asked:
        return ask(browser_, agent_);
      case Belonging::Accepted:
        return accepted(browser_, agent_);
    }
    return 0;
  }
  Route from_agent(Msg type, std::uint32_t session, const std::string& payload = {}) {
    message_ = envelope_of(type, session, payload);
    return parts_->router.route_from_agent(*agent_, message_);
  }
  Route from_browser(Msg type, std::uint32_t session, const std::string& payload = {}) {
    message_ = envelope_of(type, session, payload);
    return parts_->router.route_from_browser(*browser_, message_);
  }
  std::string payload() const { return {message_.begin() + kEnvelopeHeaderSize, message_.end()}; }
  Lines notes() {
    Lines lines = audited();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("session."); });
    return lines;
  }

  Agent agent_;
  Console browser_;
  Bytes message_;
};

// Tests all 256 message codes, including the codes without a rule.
TEST_F(RouterTest, MessageOfAMachineIsForwardedOrNotByItsTypeAndTheStateOfItsSession) {
  for (const Belonging belonging : kBelongings) {
    const std::uint32_t session = session_that_is(belonging);
    for (int code = 0; code < 256; ++code) {
      const MessageRule* rule = find_rule(static_cast<Msg>(code));
      const Route route = from_agent(static_cast<Msg>(code), session);
      Kind expected = Kind::Swallow;
      if (rule && rule->from_agent()) {
        if (rule->scope != Scope::Session) expected = Kind::ForRelay;
        if (rule->scope == Scope::Session && belonging == Belonging::Accepted) expected = Kind::Forward;
      }
      EXPECT_EQ(route.kind, expected) << code << " in state " << static_cast<int>(belonging);
      EXPECT_EQ(route.to, expected == Kind::Forward ? browser_->channel : nullptr);
      const bool silent = expected != Kind::Swallow || (rule && rule->code == Msg::StreamFrame);
      EXPECT_EQ(route.reason.empty(), silent) << code << ": " << route.reason;
    }
    if (belonging == Belonging::Asked) parts_->sessions.reject(*agent_, session);
  }
}

TEST_F(RouterTest, MessageOfABrowserIsForwardedOrNotByItsTypeAndTheStateOfItsSession) {
  const std::map<Belonging, std::string> refusals = {
      {Belonging::None, "There is no such session."},
      {Belonging::OfAnother, "There is no such session."},
      {Belonging::Asked, "The session has not been accepted."},
      {Belonging::Accepted, "A message of that type may not be sent to the machine."},
  };
  for (const Belonging belonging : kBelongings) {
    const std::uint32_t session = session_that_is(belonging);
    for (int code = 0; code < 256; ++code) {
      const auto type = static_cast<Msg>(code);
      if (belonging == Belonging::Accepted && is_transfer(type)) continue;  // transfers have their own tests
      const MessageRule* rule = find_rule(type);
      const bool allowed = rule && rule->to_agent() && rule->scope == Scope::Session;
      const Route route = from_browser(type, session);
      if (allowed && belonging == Belonging::Accepted) {
        EXPECT_EQ(route.kind, Kind::Forward) << code;
        EXPECT_EQ(route.to, agent_->channel);
        continue;
      }
      EXPECT_EQ(route.kind, Kind::Refuse) << code << " in state " << static_cast<int>(belonging);
      EXPECT_EQ(route.to, nullptr);
      EXPECT_EQ(route.reason, refusals.at(belonging)) << code;
      const bool own = belonging == Belonging::Asked || belonging == Belonging::Accepted;
      EXPECT_EQ(route.agent, own ? "a" : "") << "the error must not name another browser's machine";
    }
    if (belonging == Belonging::Asked) parts_->sessions.reject(*agent_, session);
  }
}

TEST_F(RouterTest, MessagesOfAnEndedSessionAreNotForwarded) {
  const std::uint32_t session = accepted(browser_, agent_);
  parts_->sessions.close(*browser_, session);
  EXPECT_EQ(from_agent(Msg::StreamFrame, session).kind, Kind::Swallow);
  EXPECT_EQ(from_browser(Msg::InputEvent, session).kind, Kind::Refuse);
}

TEST_F(RouterTest, MessageWithAWrongLengthCountsAsMalformed) {
  const std::uint32_t session = accepted(browser_, agent_);
  const Bytes whole = envelope_of(Msg::ClipboardData, session, "\1text");
  for (std::size_t size = 0; size < whole.size(); ++size) {
    Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_EQ(parts_->router.route_from_agent(*agent_, cut).kind, Kind::Malformed) << size;
    EXPECT_EQ(parts_->router.route_from_browser(*browser_, cut).kind, Kind::Malformed) << size;
  }
  Bytes longer = whole;
  longer.push_back(0);
  EXPECT_EQ(parts_->router.route_from_agent(*agent_, longer).kind, Kind::Malformed);
}

TEST_F(RouterTest, EveryMessageBeforeTheLogInIsHandledByTheRelayItself) {
  agent_ = connect();
  for (const MessageRule& rule : kMessageRules)
    EXPECT_EQ(from_agent(rule.code, 0).kind, Kind::ForRelay);
}

TEST_F(RouterTest, MessagesOfRefusedAndClosingAgentsAreDropped) {
  agent_->refused = true;
  EXPECT_EQ(from_agent(Msg::Heartbeat, 0).kind, Kind::Swallow);
  agent_->refused = false;
  agent_->channel->close(CloseCode::PolicyViolation, "refused");
  EXPECT_EQ(from_agent(Msg::Heartbeat, 0).kind, Kind::Swallow);
}

TEST_F(RouterTest, OversizedMessageForTheRelayIsIgnored) {
  const Route route = from_agent(Msg::Heartbeat, 0, std::string(limits_.control_message, ' '));
  EXPECT_EQ(route.kind, Kind::Swallow);
  EXPECT_EQ(route.reason, "ignored an oversized message of type 4");
}

TEST_F(RouterTest, UploadIsForwardedOnlyWithATransferNumberOfItsSession) {
  const std::uint32_t session = accepted(browser_, agent_);
  const std::uint32_t number = parts_->transfers.give(session);
  const auto request = [&](std::uint32_t transfer) {
    return R"({"x":1,"transfer_id":)" + std::to_string(transfer) + R"(,"path":"a.txt"})";
  };
  const Route refused = from_browser(Msg::UploadBegin, session, request(number + 1));
  EXPECT_EQ(refused.kind, Kind::Refuse);
  EXPECT_EQ(refused.transfer, number + 1);
  EXPECT_EQ(refused.agent, "a");
  EXPECT_EQ(from_browser(Msg::UploadBegin, session, request(number)).kind, Kind::Forward);
  EXPECT_EQ(payload(), R"({"transfer_id":)" + std::to_string(number) + R"(,"path":"a.txt","size":0})");
  const Route end = from_browser(Msg::FileTransferEnd, session, request(number));
  EXPECT_EQ(end.kind, Kind::Forward);
  EXPECT_EQ(end.ended_upload, number);
  const std::string id = std::to_string(number);
  const std::string in_session =
      '/' + std::to_string(session) + R"( {"transfer":)" + id + R"(,"direction":"up",)";
  EXPECT_EQ(notes(),
            (Lines{"file.started" + in_session + R"("path":"a.txt","size":0})",
                   "file.ended" + in_session + R"("path":"a.txt","size":0,"bytes":0,"result":"ended"})"}));
}

TEST_F(RouterTest, CancellationOfADownloadIsNotSentToTheMachineWhoseEndMessageIsForwarded) {
  const std::uint32_t session = accepted(browser_, agent_);
  const std::string id = R"({"transfer_id":)" + std::to_string(parts_->transfers.give(session));
  EXPECT_EQ(from_browser(Msg::DownloadRequest, session, id + R"(,"path":"a"})").kind, Kind::Forward);
  EXPECT_EQ(from_browser(Msg::FileTransferEnd, session, id + "}").kind, Kind::Swallow);
  const Route end = from_agent(Msg::FileTransferEnd, session, id + R"(,"ok":true})");
  EXPECT_EQ(end.kind, Kind::Forward);
  EXPECT_EQ(notes().size(), 2u);
}

TEST_F(RouterTest, ClipsRestartsAndCtrlAltDelAreNotedForTheAuditTrail) {
  using namespace std::string_literals;
  const std::uint32_t session = accepted(browser_, agent_);
  const std::string file = "\3\0\0\0\1\0\0\0\1a\0\0\0\0\0\0\0\0"s;
  EXPECT_EQ(from_agent(Msg::ClipboardData, session, file).kind, Kind::Forward);
  EXPECT_EQ(from_browser(Msg::ClipboardData, session, file).kind, Kind::Forward);
  EXPECT_EQ(from_browser(Msg::ClipboardData, session, "\1text").kind, Kind::Forward);
  EXPECT_EQ(from_browser(Msg::Reboot, session).kind, Kind::Forward);
  EXPECT_EQ(from_browser(Msg::SecureAttention, session).kind, Kind::Forward);
  const std::string in_session = '/' + std::to_string(session) + " {";
  const std::string rest =
      R"(,"kind":"files","bytes":)" + std::to_string(file.size()) + R"(,"files":1,"names":["a"]})";
  EXPECT_EQ(notes(),
            (Lines{"clip.sent" + in_session + R"("direction":"down")" + rest,
                   "clip.sent" + in_session + R"("direction":"up")" + rest,
                   "clip.sent" + in_session + R"("direction":"up","kind":"text","bytes":5})",
                   "control.restart" + in_session + "}", "control.ctrl-alt-del" + in_session + "}"}));
}

TEST_F(RouterTest, ListedFoldersAreNotedOnceAMinute) {
  const std::uint32_t session = accepted(browser_, agent_);
  for (const char* path : {"C:\\\\a", "C:\\\\a", "C:\\\\b"})
    (void)from_browser(Msg::DirListRequest, session, R"({"path":")" + std::string(path) + "\"}");
  const std::string in_session = '/' + std::to_string(session) + " {";
  EXPECT_EQ(notes(), (Lines{"folder.listed" + in_session + R"("path":"C:\\a","count":1})",
                            "folder.listed" + in_session + R"("path":"C:\\b","count":1})"}));
}

TEST_F(RouterTest, StreamConfigResetsTheStateOfTheH264Stream) {
  using namespace std::string_literals;
  const std::uint32_t session = accepted(browser_, agent_);
  const std::string stamp(8, 't'), start = "\0\0\0\1"s;
  const std::string set = "\x67\x4d\x4c\x14\x8c\x8d\x40\xa0\xcb\xce\x80"s;
  const std::string in_order = "\x67\x4d\x4c\x14\x8c\x8d\x40\xa0\xcb\xcf\x35\x01\x0d\x06\x07\x84\x02\x15"s;
  const std::string b_slice = start + "\x41\x9c\x80"s;
  EXPECT_FALSE(from_agent(Msg::StreamFrame, session, stamp + start + set).key_frame_needed);
  EXPECT_EQ(payload(), stamp + start + in_order);
  EXPECT_TRUE(read_header(message_)) << "the length in the header must match the changed payload";
  const Route broken = from_agent(Msg::StreamFrame, session, stamp + b_slice);
  EXPECT_EQ(broken.kind, Kind::Forward);
  EXPECT_TRUE(broken.key_frame_needed);
  EXPECT_FALSE(from_agent(Msg::StreamFrame, session, stamp + b_slice).key_frame_needed);
  (void)from_agent(Msg::StreamConfig, session, "{}");
  (void)from_agent(Msg::StreamFrame, session, stamp + start + set);
  EXPECT_EQ(payload(), stamp + start + in_order);
}

using Held = Arrival::Kind;

TEST_F(RouterTest, MachineWithoutAnAcceptedSessionCanSendOnlySmallMessages) {
  for (const Belonging belonging : kBelongings) {
    const std::uint32_t session = session_that_is(belonging);
    const auto arrival = [&](Msg type, std::size_t size) {
      return parts_->router.arrival_from_agent(*agent_, {{type, session}, size}, true).kind;
    };
    EXPECT_EQ(arrival(Msg::ClipboardData, limits_.control_message), Held::Hold);
    EXPECT_EQ(arrival(Msg::ClipboardData, limits_.control_message + 1),
              belonging == Belonging::Accepted ? Held::Hold : Held::Drop);
    EXPECT_EQ(arrival(Msg::NameUpdate, limits_.control_message + 1), Held::Drop)
        << "no session makes messages for the relay larger";
    if (belonging == Belonging::Asked) parts_->sessions.reject(*agent_, session);
  }
}

TEST_F(RouterTest, LargestClipboardOfAnAgentIsHeldAndALargerMessageIsNot) {
  const std::uint32_t session = accepted(browser_, agent_);
  const auto arrival = [&](std::size_t size) {
    return parts_->router.arrival_from_agent(*agent_, {{Msg::ClipboardData, session}, size}, true);
  };
  constexpr std::size_t kLongestName = 255 * 3;  // UTF-8 bytes of a name with 255 UTF-16 units
  const std::size_t clipboard = kEnvelopeHeaderSize + 5 + (64u << 20) + 5000 * (4 + kLongestName + 8);
  EXPECT_EQ(arrival(clipboard).kind, Held::Hold);
  EXPECT_EQ(arrival(limits_.agent_message).kind, Held::Hold);
  const Arrival larger = arrival(limits_.agent_message + 1);
  EXPECT_EQ(larger.kind, Held::TooLarge);
  EXPECT_EQ(larger.to, browser_->channel);
}

TEST_F(RouterTest, LargeMessagesOfAllMachinesShareABudget) {
  limits_.large_messages = 2 * limits_.agent_message;
  restart();
  const auto arrival = [&](const std::string& id, std::size_t size) {
    const Agent agent = log_in(id);
    const std::uint32_t session = accepted(browse("ada"), agent);
    return parts_->router.arrival_from_agent(*agent, {{Msg::ClipboardData, session}, size}, true);
  };
  const Arrival first = arrival("c", limits_.agent_message);
  {
    const Arrival second = arrival("d", limits_.agent_message);
    EXPECT_EQ(second.kind, Held::Hold);
    EXPECT_EQ(arrival("e", limits_.small_message + 1).kind, Held::TooLarge);
    EXPECT_EQ(arrival("f", limits_.small_message).kind, Held::Hold) << "small messages need no budget";
  }
  EXPECT_EQ(arrival("g", limits_.agent_message).kind, Held::Hold) << "the second message is gone";
}

TEST_F(RouterTest, SmallMessageWaitsForMemoryUntilTheLargestMessageThatArrivesIsCut) {
  limits_.bytes_in_flight = limits_.small_message + 2000;
  restart();
  const Agent older = log_in("c"), newer = log_in("d"), last = log_in("e");
  std::map<Agent, std::uint32_t> sessions;
  for (const Agent& agent : {older, newer, last})
    sessions[agent] = accepted(browse("ada"), agent);
  const auto arrival = [&](const Agent& agent, std::size_t size, bool waited) {
    const EnvelopeStart start{{Msg::ClipboardData, sessions.at(agent)}, size};
    return parts_->router.arrival_from_agent(*agent, start, waited);
  };
  const std::size_t half = limits_.bytes_in_flight / 2;
  Arrival first = arrival(older, half, true), second = arrival(newer, half, true);
  EXPECT_EQ(second.kind, Held::Hold);
  EXPECT_EQ(arrival(last, half - 1, false).kind, Held::Later);
  EXPECT_EQ(arrival(last, half, true).kind, Held::TooLarge) << "none is larger";
  EXPECT_EQ(arrival(last, half - 1, true).kind, Held::Later);
  EXPECT_FALSE(older->channel->is_cut());
  EXPECT_TRUE(newer->channel->is_cut()) << "the newest of the largest messages";
  second = {};
  EXPECT_EQ(arrival(last, half - 1, true).kind, Held::Hold);
  first.entry = {};  // the message has arrived
  EXPECT_EQ(arrival(last, half + 1, true).kind, Held::TooLarge);
  EXPECT_FALSE(older->channel->is_cut());
}

TEST_F(RouterTest, MessageThatArrivesIsNoLongerWantedAfterItsSessionEnded) {
  const std::uint32_t session = accepted(browser_, agent_);
  const EnvelopeStart start{{Msg::ClipboardData, session}, limits_.small_message};
  EXPECT_TRUE(parts_->router.still_wanted(*agent_, start));
  parts_->sessions.close(*browser_, session);
  EXPECT_FALSE(parts_->router.still_wanted(*agent_, start));
}

}  // namespace
}  // namespace vlk::relay
