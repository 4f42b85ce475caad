// A fixture with the relay's session parts and no network. Tests call the parts as connections would, and
// read the peers' channels.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/use_future.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "relay/session/parts.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/test_database.h"
#include "support/temp_folder.h"

namespace vlk::relay {

using Json = nlohmann::json;
using Lines = std::vector<std::string>;

class PartsTest : public testing::Test {
 protected:
  using Agent = std::shared_ptr<AgentPeer>;
  using Console = std::shared_ptr<ConsolePeer>;

  PartsTest();

  // Add a connection: of an agent that has not logged in, of an enrolled machine `id`, or of a browser.
  Agent connect();
  Agent log_in(const std::string& id);
  // The browser's person is an administrator, unless there is a person of this name already.
  Console browse(const std::string& representative);

  // Adds a person, or changes the role of one, and returns the person's id.
  PersonId person(const std::string& name, Role role);
  // Gives the person these rights in the first group, in place of earlier ones.
  void give_rights(PersonId person, Rights rights);

  // Request a session of the browser with the machine and return its number. accepted() also accepts it.
  std::uint32_t ask(const Console& console, const Agent& agent);
  std::uint32_t accepted(const Console& console, const Agent& agent);

  // Takes the channel's queued messages: each as JSON text or, for an envelope, as "TYPE/SESSION PAYLOAD".
  static Lines sent(Channel& channel);
  // The same as sent(), without the messages with lists of machines and of viewers.
  static Lines sent_but_lists(Channel& channel);
  // Waits until the database has done what it was given, and runs the callbacks.
  void settle();
  // Constructs the parts again, as a restart of the relay does.
  void restart();
  // The rows of the audit trail as "CODE/SESSION FIELDS" or "CODE FIELDS".
  Lines audited();
  [[nodiscard]] std::vector<MachineRecord> stored_machines();
  // Runs the coroutine to its end and returns its result.
  template <class Result>
  Result result_of(boost::asio::awaitable<Result> work) {
    auto result = boost::asio::co_spawn(io_, std::move(work), boost::asio::use_future);
    io_.restart();
    io_.poll();
    settle();
    return result.get();
  }
  bool logged(const std::string& text) const { return log_text_.find(text) != std::string::npos; }
  // Makes each further write to the audit trail fail.
  void break_audit_trail();

  vantelink_test::TempFolder folder_;
  const std::string file_ = database_in(folder_.path());
  std::string log_text_;
  const Log log_;
  Limits limits_;
  boost::asio::io_context io_;
  DatabaseThread database_{std::make_unique<Store>(file_), io_.get_executor()};
  Spools spools_{folder_.path() / "spool", io_.get_executor(), {limits_.spool, limits_.spools}};
  std::unique_ptr<Parts> parts_;
};

// An envelope with the given payload.
Bytes envelope_of(Msg type, std::uint32_t session, const std::string& payload = {});

}  // namespace vlk::relay
