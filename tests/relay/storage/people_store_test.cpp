// What is stored about people, teams, groups, rights, invitations, log-ins, settings and enrolment windows.
#include "relay/storage/people/people_store.h"

#include <gtest/gtest.h>

#include "relay/storage/machines/machine_store.h"
#include "relay/storage/people/access_store.h"
#include "relay/storage/store.h"
#include "relay/storage/test_database.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

class PeopleStoreTest : public testing::Test {
 protected:
  std::int64_t add(const std::string& name) {
    Person person;
    person.name = name;
    person.password = "hash of " + name;
    return add_person(database_, person).value_or(-1);
  }

  vantelink_test::TempFolder folder_;
  Store store_{database_in(folder_.path())};
  Database& database_ = store_.database();
};

TEST_F(PeopleStoreTest, PersonKeepsAllMembersAndANameIsUsedOnce) {
  Person person{.name = "ada",
                .password = "hash",
                .role = Role::Auditor,
                .must_change = true,
                .disabled = true,
                .totp_secret = {1, 2},
                .totp_last_step = 7,
                .created_at = 9};
  person.id = add_person(database_, person).value();
  EXPECT_FALSE(add_person(database_, person).has_value());
  const auto check = [&] {
    const auto found = find_person(database_, person.name);
    ASSERT_TRUE(found.has_value());
    EXPECT_EQ(found->id, person.id);
    EXPECT_EQ(found->password, person.password);
    EXPECT_EQ(found->role, person.role);
    EXPECT_EQ(found->must_change, person.must_change);
    EXPECT_EQ(found->disabled, person.disabled);
    EXPECT_EQ(found->totp_secret, person.totp_secret);
    EXPECT_EQ(found->totp_last_step, person.totp_last_step);
    EXPECT_EQ(found->created_at, person.created_at);
  };
  check();
  person = {person.id, "eva", "other", Role::Administrator, false, false, {}, 8, 10};
  EXPECT_TRUE(update_person(database_, person));
  check();
  EXPECT_EQ(load_people(database_).size(), 1u);
}

TEST_F(PeopleStoreTest, RemovedPersonLeavesNothingBehind) {
  const std::int64_t ada = add("ada");
  const std::int64_t eva = add("eva");
  replace_backup_codes(database_, ada, {{1}, {2}});
  (void)add_team(database_, {0, "team", {ada, eva}});
  replace_rights(database_, kFirstGroup, {{kFirstGroup, ada, {}, 3}, {kFirstGroup, eva, {}, 1}});
  add_login(database_, {.token_hash = {1}, .person = ada, .expires_at = 100});
  EXPECT_TRUE(remove_person(database_, ada));
  EXPECT_FALSE(remove_person(database_, ada));
  EXPECT_TRUE(load_backup_codes(database_).empty());
  EXPECT_EQ(load_teams(database_).front().members, std::vector{eva});
  EXPECT_EQ(load_rights(database_).size(), 1u);
  EXPECT_TRUE(load_logins(database_).empty());
  EXPECT_GT(add("new"), eva) << "ids are not used again";
}

TEST_F(PeopleStoreTest, BackupCodeIsUsedOnce) {
  const std::int64_t ada = add("ada");
  replace_backup_codes(database_, ada, {{1}, {2}});
  EXPECT_FALSE(use_backup_code(database_, ada, {3}, 50));
  EXPECT_TRUE(use_backup_code(database_, ada, {1}, 50));
  EXPECT_FALSE(use_backup_code(database_, ada, {1}, 51));
  replace_backup_codes(database_, ada, {{4}});
  const auto codes = load_backup_codes(database_);
  ASSERT_EQ(codes.size(), 1u);
  EXPECT_EQ(codes[0].hash, Bytes{4});
  EXPECT_FALSE(codes[0].used_at.has_value());
}

TEST_F(PeopleStoreTest, TeamsAndInvitationsAreStoredChangedAndRemoved) {
  const std::int64_t ada = add("ada");
  const std::int64_t eva = add("eva");
  const auto team = add_team(database_, {0, "team", {ada}});
  ASSERT_TRUE(team.has_value());
  EXPECT_FALSE(add_team(database_, {0, "team", {}}).has_value());
  EXPECT_TRUE(update_team(database_, {*team, "new name", {eva}}));
  EXPECT_EQ(load_teams(database_).front().name, "new name");
  EXPECT_EQ(load_teams(database_).front().members, std::vector{eva});
  const std::int64_t id = add_invitation(database_, {0, {5}, "jon", Role::Auditor, {*team}, 70, "ada"});
  const Invitation found = load_invitations(database_).front();
  EXPECT_EQ(found.id, id);
  EXPECT_EQ(found.token_hash, Bytes{5});
  EXPECT_EQ(found.name + ' ' + found.made_by, "jon ada");
  EXPECT_EQ(found.role, Role::Auditor);
  EXPECT_EQ(found.teams, std::vector{*team});
  EXPECT_EQ(found.expires_at, 70);
  EXPECT_TRUE(remove_invitation(database_, id));
  EXPECT_TRUE(remove_team(database_, *team));
  EXPECT_TRUE(load_teams(database_).empty() && load_invitations(database_).empty());
}

TEST_F(PeopleStoreTest, MachinesOfARemovedGroupMoveToTheFirstGroup) {
  const auto group = add_group(database_, {0, "servers", true, false});
  ASSERT_TRUE(group.has_value());
  EXPECT_TRUE(load_groups(database_).back().step_up);
  add_machine(database_, {.id = "a", .group = *group, .state = MachineState::Waiting});
  replace_rights(database_, *group, {{*group, add("ada"), {}, 5}});
  add_enrolment_window(database_, {0, *group, 100, 3, "ada", 1});
  EXPECT_TRUE(remove_group(database_, *group));
  EXPECT_FALSE(remove_group(database_, kFirstGroup));
  EXPECT_EQ(load_machines(database_).front().group, kFirstGroup);
  EXPECT_TRUE(load_rights(database_).empty() && load_enrolment_windows(database_).empty());
}

TEST_F(PeopleStoreTest, EnrolmentWindowCountsMachines) {
  const std::int64_t id = add_enrolment_window(database_, {0, kFirstGroup, 100, 2, "ada", 1});
  const std::int64_t endless = add_enrolment_window(database_, {0, kFirstGroup, 100, {}, "ada", 1});
  EXPECT_TRUE(use_enrolment_window(database_, id));
  EXPECT_TRUE(use_enrolment_window(database_, endless));
  const auto windows = load_enrolment_windows(database_);
  EXPECT_EQ(windows.at(0).machines_left, 1);
  EXPECT_FALSE(windows.at(1).machines_left.has_value());
  EXPECT_TRUE(use_enrolment_window(database_, id));
  EXPECT_FALSE(use_enrolment_window(database_, id)) << "full";
  EXPECT_EQ(load_enrolment_windows(database_).at(0).machines_left, 0);
  remove_enrolment_window(database_, id);
  EXPECT_FALSE(use_enrolment_window(database_, id)) << "gone";
  EXPECT_EQ(load_enrolment_windows(database_).size(), 1u);
}

TEST_F(PeopleStoreTest, LogInsAreStoredChangedAndRemoved) {
  const std::int64_t ada = add("ada");
  LoginRow login{.token_hash = {2},
                 .person = ada,
                 .stage = LoginStage::Totp,
                 .created_at = 10,
                 .last_used = 10,
                 .expires_at = 50,
                 .idle_limit = 7,
                 .address = "10.0.0.2"};
  login.id = add_login(database_, login);
  ASSERT_EQ(load_logins(database_).size(), 1u);
  login.stage = LoginStage::Full;
  EXPECT_TRUE(update_login(database_, login));
  touch_logins(database_, {{login.id, 30}});
  const LoginRow found = load_logins(database_).front();
  EXPECT_EQ(found.stage, LoginStage::Full);
  EXPECT_EQ(found.last_used, 30);
  EXPECT_EQ(found.expires_at, 50);
  EXPECT_EQ(found.idle_limit, 7);
  EXPECT_EQ(found.address, "10.0.0.2");
  remove_logins_of(database_, ada, {2});
  EXPECT_EQ(load_logins(database_).size(), 1u);
  EXPECT_TRUE(remove_login(database_, {2}));
  EXPECT_TRUE(load_logins(database_).empty());
}

TEST_F(PeopleStoreTest, SettingIsReplacedByItsNewValue) {
  store_setting(database_, {"login_hours", "8"});
  store_setting(database_, {"login_hours", "9"});
  ASSERT_EQ(load_settings(database_).size(), 1u);
  EXPECT_EQ(load_settings(database_)[0].value, "9");
}

}  // namespace
}  // namespace vlk::relay
