// The relay's stored state: machines, people and what they may do, and the audit trail.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "relay/storage/database.h"
#include "relay/storage/people/people_store.h"

namespace vlk::relay {

// Each function throws DatabaseError if it fails. A function that failed has changed nothing.
class Store {
 public:
  // Opens the file, or creates it, or connects to the URL. Creates the tables, or migrates those of an older
  // version.
  explicit Store(const std::string& address);

  // The functions in machine_store.h, people/ and trail/ work on this.
  [[nodiscard]] Database& database() { return database_; }

  // Changes from the command line, each in a transaction of its own and with its row in the trail.
  // True until the first administrator or another person was added. It stays false when all people have been
  // removed.
  [[nodiscard]] bool is_first_start();
  // Ends the first start. The password must be changed at the first log-in.
  void add_first_administrator(const std::string& user, const std::string& hash);
  // Adds a person. Returns false if the name exists already.
  bool add_user(const std::string& user, const std::string& hash, Role role = Role::Administrator);
  // Changes the password and ends the user's log-ins. Returns false if there is no such user.
  bool set_password(const std::string& user, const std::string& hash);
  // Removes the user and ends the user's log-ins. Returns false if there is no such user. The last
  // administrator can be removed here: who has the database may do everything.
  [[nodiscard]] bool remove_user(const std::string& user);
  // Opens a window in which new machines are approved into the first group without a decision: for so many
  // minutes, and for so many machines if a number is given.
  void open_enrolment(std::int64_t minutes, std::optional<std::int64_t> machines = {});

 private:
  // Must be called in a transaction.
  [[nodiscard]] bool insert_user(const std::string& user, const std::string& hash, Role role, bool one_time);

  Database database_;
};

}  // namespace vlk::relay
