// What administrators' decisions store, and what they do to connected machines and running sessions.
#include "relay/admission/machine_decisions.h"

#include <functional>

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

using enum MachineState;
using Ids = MachineDecisions::Ids;

class MachineDecisionsTest : public PartsTest {
 protected:
  MachineDecisionsTest() { add_group("ships"); }

  void add_group(const std::string& name) {
    People::Contents contents = database_.run_and_wait([&](Store& store) {
      (void)relay::add_group(store.database(), Group{0, name});
      return People::load(store.database());
    });
    parts_->people.replace(std::move(contents));
  }

  // Adds a machine in this state and connects it.
  Agent machine(const std::string& id, MachineState state) {
    const Agent agent = log_in(id);
    MachineRecord record = *parts_->machines.find(id);
    record.state = state;
    database_.run_and_wait([&](Store& store) { set_machine_state(store.database(), record); });
    parts_->machines.change(id, [&](MachineRecord& known) { known.state = state; });
    return agent;
  }

  // The list of machines as an administrator sees it.
  Json listed() {
    parts_->browsers.send_changes();
    const auto console = browse("administrator");
    (void)sent(*console->channel);
    parts_->browsers.set_view(*console, parts_->view_of(console->person));
    for (const std::string& line : sent(*console->channel)) {
      const Json message = Json::parse(line);
      if (message["type"] == "agents") return message["agents"];
    }
    return {};
  }

  MachineRecord stored(const std::string& id) {
    for (const MachineRecord& machine : stored_machines()) {
      if (machine.id == id) return machine;
    }
    return {};
  }

  // Carries out the decision. Returns the sentence of a refusal, or an empty text.
  std::string decide(const std::function<MachineDecisions::Done()>& decision) {
    try {
      result_of(decision());
    } catch (const DecisionRefused& refusal) {
      return refusal.what();
    }
    return {};
  }

  // Expects the same state in memory and in the database.
  void expect_state(const std::string& id, MachineState state) {
    EXPECT_EQ(state_name(stored(id).state), state_name(state));
    ASSERT_TRUE(parts_->machines.find(id));
    EXPECT_EQ(state_name(parts_->machines.find(id)->state), state_name(state));
  }

  // The message that ends a session on the machine, as sent() returns it.
  static std::string session_end(std::uint32_t number) {
    return std::to_string(static_cast<int>(Msg::SessionEnd)) + '/' + std::to_string(number) + " {}";
  }

  Admission admission_{*parts_, log_};
  MachineDecisions decisions_{*parts_, admission_};
  const MachineDecisions::By by_{"ada", "10.0.0.9:9"};
};

TEST_F(MachineDecisionsTest, ApprovalMovesWaitingMachinesIntoTheGroupAndListsThem) {
  const auto a = machine("a", Waiting);
  const auto b = machine("b", Waiting);
  EXPECT_EQ(listed().size(), 0U);
  EXPECT_EQ(decide([&] { return decisions_.approve(by_, {"a", "b", "a"}, 2); }), "");
  expect_state("a", Approved);
  EXPECT_EQ(stored("b").group, 2);
  EXPECT_EQ(stored("b").state_by, "ada");
  EXPECT_FALSE(a->channel->is_cut());
  EXPECT_EQ(listed().size(), 2U);
  EXPECT_EQ(audited().back(), R"(machine.approved {"name":"name of b","group":"ships"})");
}

TEST_F(MachineDecisionsTest, DecisionAboutSeveralMachinesIsMadeForAllOrNone) {
  machine("a", Waiting);
  machine("b", Approved);
  EXPECT_EQ(decide([&] {
              return decisions_.approve(by_, {"a", "b"}, 1);
            }),
            "\"name of b\" does not wait for approval.");
  expect_state("a", Waiting);
  EXPECT_EQ(decide([&] { return decisions_.approve(by_, {"a", "c"}, 1); }), "There is no such machine.");
  EXPECT_EQ(decide([&] { return decisions_.approve(by_, {}, 1); }), "No machine is named.");
  EXPECT_EQ(decide([&] { return decisions_.approve(by_, {"a"}, 77); }), "There is no such group.");
  EXPECT_EQ(decide([&] { return decisions_.approve(by_, Ids(1001, "a"), 1); }),
            "Too many machines are named.");
  expect_state("a", Waiting);
  EXPECT_TRUE(audited().empty());
}

TEST_F(MachineDecisionsTest, NothingChangesIfTheDecisionCannotBeStored) {
  machine("a", Waiting);
  break_audit_trail();
  EXPECT_THROW(result_of(decisions_.approve(by_, {"a"}, 1)), DatabaseError);
  expect_state("a", Waiting);
}

TEST_F(MachineDecisionsTest, RefusedMachineIsCutAndWaitsAgainWhenUnblocked) {
  const auto a = machine("a", Waiting);
  EXPECT_EQ(decide([&] { return decisions_.refuse(by_, {"a"}); }), "");
  expect_state("a", Refused);
  EXPECT_TRUE(a->channel->is_cut());
  EXPECT_EQ(decide([&] { return decisions_.unblock(by_, {"a"}); }), "");
  expect_state("a", Waiting);
}

TEST_F(MachineDecisionsTest, BlockingEndsTheSessionAndCutsTheConnection) {
  const auto agent = machine("a", Approved);
  const auto console = browse("bo");
  const auto number = accepted(console, agent);
  EXPECT_EQ(decide([&] { return decisions_.block(by_, {"a"}, "stolen"); }), "");
  expect_state("a", Blocked);
  EXPECT_EQ(stored("a").reason, "stolen");
  EXPECT_TRUE(agent->channel->is_cut());
  EXPECT_EQ(parts_->sessions.find(number), nullptr);
  EXPECT_NE(sent_but_lists(*console->channel).back().find("\"reason\":\"blocked\""), std::string::npos);
  EXPECT_EQ(decide([&] { return decisions_.unblock(by_, {"a"}); }), "");
  expect_state("a", Approved);
  EXPECT_EQ(stored("a").reason, "");
}

TEST_F(MachineDecisionsTest, BlockAndQuarantineNeedAReason) {
  machine("a", Approved);
  EXPECT_EQ(decide([&] { return decisions_.block(by_, {"a"}, ""); }), "A reason is needed.");
  EXPECT_EQ(decide([&] { return decisions_.quarantine(by_, {"a"}, std::string(501, 'x')); }),
            "The reason is too long.");
  expect_state("a", Approved);
}

TEST_F(MachineDecisionsTest, QuarantineEndsTheSessionAndKeepsTheConnection) {
  const auto agent = machine("a", Approved);
  const auto console = browse("bo");
  const auto number = accepted(console, agent);
  EXPECT_EQ(decide([&] { return decisions_.quarantine(by_, {"a"}, "virus found"); }), "");
  EXPECT_EQ(parts_->sessions.find(number), nullptr);
  EXPECT_FALSE(agent->channel->is_cut());
  EXPECT_EQ(sent(*agent->channel).back(), session_end(number)) << "the machine stops what it sends";
  EXPECT_EQ(listed()[0]["quarantine"], "virus found");
  (void)sent(*console->channel);
  parts_->sessions.open(console, "a");
  EXPECT_NE(sent(*console->channel).back().find("\"code\":\"quarantined\""), std::string::npos);
  EXPECT_EQ(decide([&] { return decisions_.release(by_, {"a"}); }), "");
  expect_state("a", Approved);
  EXPECT_NE(ask(console, agent), 0U);
}

TEST_F(MachineDecisionsTest, SessionEndsWhenItsMachineMovesToAGroupThatTheRepresentativeMayNotSee) {
  const auto agent = machine("a", Approved);
  give_rights(person("bo", Role::Representative), kAllRights);
  const auto console = browse("bo");
  const auto number = accepted(console, agent);
  EXPECT_EQ(decide([&] { return decisions_.move(by_, {"a"}, 2); }), "");
  EXPECT_EQ(parts_->sessions.find(number), nullptr);
  EXPECT_EQ(sent(*agent->channel).back(), session_end(number));
  EXPECT_NE(sent_but_lists(*console->channel).back().find("\"reason\":\"no-right\""), std::string::npos);
}

TEST_F(MachineDecisionsTest, MachineThatIsNotListedHasNoSessions) {
  machine("a", Waiting);
  const auto console = browse("bo");
  (void)sent(*console->channel);
  parts_->sessions.open(console, "a");
  EXPECT_NE(sent(*console->channel).back().find("\"code\":\"unknown\""), std::string::npos);
}

TEST_F(MachineDecisionsTest, ReplacementTakesTheGroupAndRemovesTheOlderEntry) {
  machine("new", Waiting);
  const auto older = machine("old", Approved);
  EXPECT_EQ(decide([&] { return decisions_.move(by_, {"old"}, 2); }), "");
  EXPECT_EQ(decide([&] { return decisions_.replace(by_, "new", "old"); }),
            "\"name of old\" is connected; it cannot be replaced.");
  older->channel->cut("test");
  parts_->machines.remove_connection(older);
  parts_->machines.set_elsewhere("old", 7);
  EXPECT_EQ(decide([&] { return decisions_.replace(by_, "new", "old"); }),
            "\"name of old\" is connected; it cannot be replaced.")
      << "to another relay";
  parts_->machines.left_relay("old", 7);
  EXPECT_EQ(decide([&] { return decisions_.replace(by_, "new", "old"); }), "");
  expect_state("new", Approved);
  EXPECT_EQ(stored("new").group, 2);
  EXPECT_EQ(parts_->machines.find("old"), nullptr);
  EXPECT_EQ(stored_machines().size(), 1U) << "the older entry and its secret are removed";
}

TEST_F(MachineDecisionsTest, ConnectedMachineCanBeRemovedAndDisconnected) {
  const auto a = machine("a", Approved);
  const auto b = machine("b", Approved);
  EXPECT_EQ(decide([&] { return decisions_.disconnect(by_, {"b"}); }), "");
  EXPECT_TRUE(b->channel->is_cut());
  expect_state("b", Approved);
  EXPECT_EQ(decide([&] { return decisions_.remove(by_, {"a"}); }), "");
  EXPECT_TRUE(a->channel->is_cut());
  EXPECT_EQ(parts_->machines.find("a"), nullptr);
  EXPECT_EQ(stored_machines().size(), 1U);
}

TEST_F(MachineDecisionsTest, WindowIsStoredWithItsBoundsAndClosed) {
  const auto open = [&](auto minutes, auto machines) {
    return result_of(decisions_.open_enrolment(by_, 2, minutes, machines));
  };
  EXPECT_THROW(open(std::nullopt, std::nullopt), DecisionRefused);
  EXPECT_THROW(open(0, std::nullopt), DecisionRefused);
  EXPECT_THROW(open(std::nullopt, 10'001), DecisionRefused);
  const std::int64_t id = open(5, 3);
  EXPECT_EQ(admission_.windows().all().front().until, admission_.windows().all().front().opened_at + 300);
  EXPECT_EQ(Admission(*parts_, log_).windows().all().size(), 1U) << "the window is stored";
  EXPECT_EQ(decide([&] { return decisions_.close_enrolment(by_, id); }), "");
  EXPECT_EQ(decide([&] { return decisions_.close_enrolment(by_, id); }),
            "There is no such enrolment window.");
  EXPECT_TRUE(Admission(*parts_, log_).windows().all().empty());
}

}  // namespace
}  // namespace vlk::relay
