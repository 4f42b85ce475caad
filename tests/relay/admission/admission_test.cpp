// Waiting machines, identities that are used twice, and windows that close.
#include "relay/admission/admission.h"

#include "relay/session/parts_fixture.h"

namespace vlk::relay {
namespace {

class AdmissionTest : public PartsTest {
 protected:
  void add_waiting(const std::string& id, const std::string& address, std::int64_t enrolled_at) {
    MachineRecord record;
    record.id = id;
    record.state = MachineState::Waiting;
    record.enrolled_from = address;
    record.enrolled_at = enrolled_at;
    parts_->machines.add(record);
  }

  Admission admission_{*parts_, log_};
};

TEST_F(AdmissionTest, OneAddressHasALimitedNumberOfWaitingMachines) {
  for (std::size_t i = 0; i < kWaitingPerAddress; ++i) {
    EXPECT_TRUE(admission_.make_room("10.0.0.1:5"));
    add_waiting(std::to_string(i), "10.0.0.1:" + std::to_string(i), 1);
  }
  EXPECT_FALSE(admission_.make_room("10.0.0.1:5"));
  EXPECT_TRUE(admission_.make_room("10.0.0.11:5"));
}

TEST_F(AdmissionTest, AllAddressesOfAnIpv6HostShareItsWaitingMachines) {
  for (std::size_t i = 0; i < kWaitingPerAddress; ++i)
    add_waiting(std::to_string(i), "[2001:db8::" + std::to_string(i) + "]:80", 1);
  EXPECT_FALSE(admission_.make_room("[2001:db8::ffff]:80"));
  EXPECT_TRUE(admission_.make_room("[2001:db8:0:1::1]:80"));
}

TEST_F(AdmissionTest, MachineThatWaitedLongestWithoutAConnectionGivesWayToANewerOne) {
  for (std::size_t i = 0; i < kWaitingMachines; ++i)
    add_waiting(std::to_string(i), std::to_string(i) + ":1", static_cast<std::int64_t>(i));
  (void)parts_->machines.log_in(connect(), "0");
  EXPECT_TRUE(admission_.make_room("new:1"));
  EXPECT_TRUE(parts_->machines.find("0")) << "a connected machine keeps its place";
  EXPECT_FALSE(parts_->machines.find("1"));
  EXPECT_TRUE(parts_->machines.find("2"));
  EXPECT_EQ(audited().back(), R"(machine.forgotten {"name":""})");
}

TEST_F(AdmissionTest, IdentityOfTwoComputersIsHeldBackUntilAnAdministratorDecides) {
  auto older = log_in("a");
  bool found = false;
  for (std::size_t i = 0; i < IdentityFights::kReplacements; ++i) {
    EXPECT_FALSE(found);
    const auto newer = connect();
    newer->address = i % 2 ? "10.0.0.1:1" : "10.0.0.2:2";
    EXPECT_EQ(parts_->machines.log_in(newer, "a"), older);
    found = admission_.replaced(*newer, *older, Clock::now());
    older = newer;
  }
  EXPECT_TRUE(found);
  EXPECT_EQ(stored_machines().front().state, MachineState::UsedTwice);
  EXPECT_EQ(parts_->machines.find("a")->reason, "10.0.0.2:2, 10.0.0.1:1");
  EXPECT_EQ(audited().back(), R"(machine.used-twice {"name":"name of a","address":"10.0.0.2:2"})");
  EXPECT_FALSE(may_connect(MachineState::UsedTwice));
}

TEST_F(AdmissionTest, ClosedWindowIsRemovedWithARowThatSaysWhy) {
  EnrolmentWindow window;
  window.until = 100;
  window.machines_left = 1;
  window.id =
      database_.run_and_wait([&](Store& store) { return add_enrolment_window(store.database(), window); });
  admission_.windows().add(window);
  admission_.tick(99);
  EXPECT_EQ(admission_.windows().all().size(), 1U);
  EXPECT_TRUE(admission_.windows().admit(99));
  admission_.tick(99);
  EXPECT_EQ(audited().back(), R"(enrolment.closed {"group":"Machines","reason":"machines"})");
  EXPECT_TRUE(Admission(*parts_, log_).windows().all().empty());
}

TEST_F(AdmissionTest, WindowOfAnotherProcessIsUsedAfterAReload) {
  database_.run_and_wait([](Store& store) {
    EnrolmentWindow window;
    window.until = 100;
    return add_enrolment_window(store.database(), window);
  });
  EXPECT_FALSE(admission_.windows().admit(1));
  admission_.reload();
  io_.restart();
  io_.poll();
  settle();
  EXPECT_TRUE(admission_.windows().admit(1));
}

}  // namespace
}  // namespace vlk::relay
