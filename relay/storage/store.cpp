// Opens the database, and carries out the changes of the command line.
#include "relay/storage/store.h"

#include <array>

#include "relay/base/clock.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/people/access_store.h"
#include "relay/storage/people/people_store.h"
#include "relay/storage/schema.h"
#include "relay/storage/trail/chain.h"

namespace vlk::relay {
namespace {

// The setting that is stored at the first start.
constexpr char kStarted[] = "started";

const TrailSubject kCommandLine{.actor = kTrailCommandLine};

}  // namespace

Store::Store(const std::string& address) : database_(address) {
  prepare_schema(database_);
}

bool Store::is_first_start() {
  Transaction transaction(database_);
  const bool started = Statement(database_, "SELECT 1 FROM settings WHERE key = ?").bind(kStarted).step();
  const bool has_people = Statement(database_, "SELECT 1 FROM people LIMIT 1").step();
  if (!started && has_people) store_setting(database_, {kStarted, "true"});
  transaction.commit();
  return !started && !has_people;
}

void Store::add_first_administrator(const std::string& user, const std::string& hash) {
  Transaction transaction(database_);
  if (!insert_user(user, hash, Role::Administrator, true))
    throw DatabaseError("there is a person with the name of the first administrator already");
  store_setting(database_, {kStarted, "true"});
  transaction.commit();
}

bool Store::add_user(const std::string& user, const std::string& hash, Role role) {
  Transaction transaction(database_);
  if (!insert_user(user, hash, role, false)) return false;
  transaction.commit();
  return true;
}

bool Store::insert_user(const std::string& user, const std::string& hash, Role role, bool one_time) {
  Person person;
  person.name = user;
  person.password = hash;
  person.role = role;
  person.must_change = one_time;
  person.created_at = wall_seconds();
  if (!add_person(database_, person)) return false;
  append_trail(database_,
               std::array{trail_entry<TrailKind::PersonAdded>(kCommandLine, user, role_name(person.role))});
  return true;
}

bool Store::set_password(const std::string& user, const std::string& hash) {
  Transaction transaction(database_);
  auto person = find_person(database_, user);
  if (!person) return false;
  person->password = hash;
  update_person(database_, *person);
  remove_logins_of(database_, person->id, {});
  append_trail(database_, std::array{trail_entry<TrailKind::PasswordReset>(kCommandLine, user)});
  transaction.commit();
  return true;
}

void Store::open_enrolment(std::int64_t minutes, std::optional<std::int64_t> machines) {
  EnrolmentWindow window;
  window.group = kFirstGroup;
  window.opened_by = kTrailCommandLine;
  window.opened_at = wall_seconds();
  window.until = window.opened_at + minutes * 60;
  window.machines_left = machines;
  Transaction transaction(database_);
  Statement group(database_, "SELECT name FROM groups WHERE id = ?");
  const std::string name = group.bind(kFirstGroup).step() ? group.text(0) : std::string();
  add_enrolment_window(database_, window);
  append_trail(database_,
               std::array{trail_entry<TrailKind::EnrolmentOpened>(kCommandLine, name, minutes, machines)});
  transaction.commit();
}

bool Store::remove_user(const std::string& user) {
  Transaction transaction(database_);
  const auto person = find_person(database_, user);
  if (!person || !remove_person(database_, person->id)) return false;
  append_trail(database_, std::array{trail_entry<TrailKind::PersonRemoved>(kCommandLine, user)});
  transaction.commit();
  return true;
}

}  // namespace vlk::relay
