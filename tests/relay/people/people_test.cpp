// The rights of people, from their own rows and from their teams.
#include "relay/people/people.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

constexpr GroupId kOther = 2;

Person made(PersonId id, Role role, bool disabled = false) {
  Person person;
  person.id = id;
  person.name = "person " + std::to_string(id);
  person.role = role;
  person.disabled = disabled;
  return person;
}

class PeopleTest : public testing::Test {
 protected:
  PeopleTest() {
    all_.people = {made(1, Role::Administrator), made(2, Role::Representative), made(3, Role::Auditor),
                   made(4, Role::Representative, true)};
    all_.teams = {{7, "team", {2, 3, 4}}};
    all_.groups = {{kFirstGroup, "Machines"}, {kOther, "Other"}};
    people_.on_change([this] { ++changes_; });
  }
  Rights rights(PersonId id, GroupId group = kFirstGroup) {
    people_.replace(all_);
    return people_.rights_of(id, group);
  }

  People::Contents all_;
  People people_;
  int changes_ = 0;
};

TEST_F(PeopleTest, RolesDecideWithoutAnyRow) {
  EXPECT_EQ(rights(1), kAllRights);
  EXPECT_EQ(rights(1, 99), kAllRights);
  EXPECT_EQ(rights(2), kNoRights);
  EXPECT_EQ(rights(3), kNoRights);
  EXPECT_EQ(rights(99), kNoRights);
}

TEST_F(PeopleTest, RightsOfThePersonAndOfTheTeamAddUp) {
  all_.rights = {{kFirstGroup, 2, std::nullopt, kSee | kControl},
                 {kFirstGroup, std::nullopt, 7, kSee | kRestart},
                 {kOther, std::nullopt, 7, kSee}};
  EXPECT_EQ(rights(2), Rights(kSee | kControl | kRestart));
  EXPECT_EQ(rights(2, kOther), Rights(kSee));
  EXPECT_EQ(rights(3), kNoRights) << "an auditor sees no machine";
  EXPECT_EQ(rights(4), kNoRights) << "a disabled person has no rights";
  all_.teams.front().members = {3};
  EXPECT_EQ(rights(2), Rights(kSee | kControl));
}

TEST_F(PeopleTest, NoRightCountsWithoutTheRightToSee) {
  all_.rights = {{kFirstGroup, 2, std::nullopt, kControl | kForget}};
  EXPECT_EQ(rights(2), kNoRights);
}

TEST_F(PeopleTest, LastAdministratorIsTheOneWhoIsNotDisabled) {
  people_.replace(all_);
  EXPECT_TRUE(people_.is_last_administrator(1));
  EXPECT_FALSE(people_.is_last_administrator(2));
  all_.people.push_back(made(5, Role::Administrator, true));
  people_.replace(all_);
  EXPECT_TRUE(people_.is_last_administrator(1));
  EXPECT_FALSE(people_.is_last_administrator(5));
  all_.people.back().disabled = false;
  people_.replace(all_);
  EXPECT_FALSE(people_.is_last_administrator(1));
}

TEST_F(PeopleTest, EachChangeIsReported) {
  people_.replace(all_);
  people_.replace(all_);
  EXPECT_EQ(changes_, 2);
}

TEST_F(PeopleTest, NamesAreLimitedInLengthAndCharacters) {
  for (const std::string& name : {std::string("ada"), std::string("Sigga Jónsdóttir"), std::string(64, 'x')})
    EXPECT_TRUE(valid_person_name(name)) << name;
  for (const std::string& name :
       {std::string(), std::string(65, 'x'), std::string(" ada"), std::string("ada "), std::string("a\"b"),
        std::string("a\\b"), std::string("a\nb"), std::string("a\x7F"), std::string("(relay)")})
    EXPECT_FALSE(valid_person_name(name)) << name;
}

TEST_F(PeopleTest, SettingsReplaceTheValuesOfTheCommandLine) {
  Limits limits;
  limits.idle_login = std::chrono::seconds(60);
  people_.replace(all_);
  EXPECT_EQ(people_.settings(limits).login_seconds, 12 * 3600);
  EXPECT_EQ(people_.settings(limits).idle_seconds, 60);
  all_.settings = {{"login_hours", "3"}, {"idle_minutes", "0"}, {"totp_required", R"(["auditor"])"}};
  people_.replace(all_);
  EXPECT_EQ(people_.settings(limits).login_seconds, 3 * 3600);
  EXPECT_EQ(people_.settings(limits).idle_seconds, 0);
  EXPECT_TRUE(people_.totp_required(Role::Auditor));
  EXPECT_FALSE(people_.totp_required(Role::Administrator));
}

TEST_F(PeopleTest, NamesOfRightsAndBackWithoutALoss) {
  EXPECT_EQ(right_names(kAllRights).size(), 7u);
  Rights rights = kNoRights;
  for (const std::string& name : right_names(kAllRights))
    rights |= right_of_name(name).value_or(kSee);
  EXPECT_EQ(rights, kAllRights);
  EXPECT_EQ(right_of_name("fly"), std::nullopt);
}

}  // namespace
}  // namespace vlk::relay
