// The rows of the audit trail about an agent's log-in, and what a log-in does that finds no place or whose
// rows cannot be written.
#include "relay/links/agent_login.h"

#include "relay/base/secrets.h"
#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

constexpr char kHello[] = R"({"role":"agent"})";
constexpr char kEnroll[] = R"({"name":"n","machine_name":"m","os":"windows","hw_id":"x"})";
constexpr char kLogin[] = R"({"agent_id":"a","secret":"secret","name":"name of a"})";

class AgentLoginTest : public PartsTest {
 protected:
  AgentLoginTest() {
    MachineRecord record{"a", "name of a", "machine", "windows", "hw", 1};
    record.secret_hash = hash_secret("secret");
    database_.run_and_wait([&](Store& store) { add_machine(store.database(), record); });
    parts_->machines.add(record);
  }

  // Lets an agent say hello and send one message. Returns whether it has logged in.
  bool attempt(Msg type, const char* payload) {
    peer_ = connect();
    place_ = connections_.admit("10.0.0.1", peer_->address);
    login_ = std::make_unique<AgentLogin>(context_, peer_, *place_);
    EXPECT_FALSE(result_of(login_->handle(Msg::Hello, envelope_of(Msg::Hello, 0, kHello))));
    if (evicted_) (void)connections_.admit("10.0.0.1", "10.0.0.1:2");
    return result_of(login_->handle(type, envelope_of(type, 0, payload)));
  }
  // Takes every place of those who have logged in.
  void fill() {
    for (int i = 0;; ++i) {
      auto place = connections_.admit("10.1.0.1", "10.1.0.1:1");
      if (!place || !place->rise(Standing::Known)) return;
      others_.push_back(std::move(place));
    }
  }

  Admission admission_{*parts_, log_};
  Connections connections_{limits_, log_};
  RateCounter enrolments_{30, limits_.failure_window, 10};
  RateCounter refusals_{30, limits_.failure_window, 10};
  RateCounter renames_{30, limits_.failure_window, 10};
  RateCounter log_ins_{30, limits_.failure_window, 10};
  AgentContext context_{*parts_, admission_, log_, limits_, enrolments_, refusals_, renames_, log_ins_};
  std::vector<std::unique_ptr<Connections::Place>> others_;
  bool evicted_ = false;  // a newer connection takes the place before the message
  Agent peer_;
  std::unique_ptr<Connections::Place> place_;
  std::unique_ptr<AgentLogin> login_;
};

TEST_F(AgentLoginTest, LogInAndEnrolmentAreRecordedBeforeTheyAreAnswered) {
  EXPECT_TRUE(attempt(Msg::Login, kLogin));
  EXPECT_EQ(audited(), (Lines{R"(machine.connected {"name":"name of a"})"}));
  EXPECT_EQ(peer_->recorded, "a");
  EXPECT_TRUE(attempt(Msg::Enroll, kEnroll));
  EXPECT_EQ(audited().at(1),
            R"(machine.enrolled {"name":"m","os":"windows","hardware":"x","state":"waiting"})");
  EXPECT_EQ(audited().at(2), R"(machine.connected {"name":"n"})");
}

TEST_F(AgentLoginTest, LogInThatFindsNoPlaceLeavesNoRow) {
  limits_.connections = 4;
  fill();
  EXPECT_FALSE(attempt(Msg::Login, kLogin));
  EXPECT_TRUE(peer_->channel->closing());
  EXPECT_TRUE(audited().empty()) << audited().front();
  EXPECT_EQ(peer_->recorded, "");
}

TEST_F(AgentLoginTest, EnrolmentThatFindsNoPlaceStoresNothing) {
  limits_.connections = 8;
  evicted_ = true;
  EXPECT_FALSE(attempt(Msg::Enroll, kEnroll));
  EXPECT_TRUE(peer_->channel->closing());
  EXPECT_EQ(stored_machines().size(), 1u);
  EXPECT_TRUE(audited().empty()) << audited().front();
}

TEST_F(AgentLoginTest, LogInIsRefusedWhenItsRowCannotBeWritten) {
  break_audit_trail();
  EXPECT_FALSE(attempt(Msg::Login, kLogin));
  EXPECT_TRUE(peer_->refused);
  EXPECT_EQ(parts_->machines.connection("a"), nullptr);
  EXPECT_EQ(peer_->recorded, "");
  EXPECT_NE(sent(*peer_->channel).back().find("RELAY_FAILED"), std::string::npos);
}

TEST_F(AgentLoginTest, EnrolmentIsUndoneWhenItsRowCannotBeWritten) {
  break_audit_trail();
  EXPECT_FALSE(attempt(Msg::Enroll, kEnroll));
  EXPECT_EQ(stored_machines().size(), 1u);
  EXPECT_EQ(parts_->machines.records().size(), 1u);
}

}  // namespace
}  // namespace vlk::relay
