// The relay without its sockets: its parts over a database in a temporary folder, and the coroutines that
// serve agents and browsers. Each object begins with the same stored state and the same random numbers, so
// that an input always has the same effect.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "relay/admission/admission.h"
#include "relay/admission/machine_decisions.h"
#include "relay/links/agent_link.h"
#include "world/scripted_link.h"

namespace vlk::relay::fuzz {

// What is stored at the beginning: an approved machine in the first group, one that waits for approval, and
// one person of each role.
inline constexpr char kMachine[] = "machine-1";
inline constexpr char kWaitingMachine[] = "machine-2";
inline constexpr char kMachineSecret[] = "secret";
inline constexpr char kPassword[] = "correct horse battery";
inline constexpr char kAdministrator[] = "root";
inline constexpr char kRepresentative[] = "ada";
inline constexpr char kAuditor[] = "eve";

class World {
 public:
  World();
  ~World();  // NOLINT(bugprone-exception-escape)
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  // A connection of an agent or a browser.
  struct Line {
    ScriptedLink ends;
    std::shared_ptr<bool> served;  // becomes true when the relay's coroutine has ended

    [[nodiscard]] Channel& channel() const { return *ends.link->channel(); }
    void send(Bytes bytes, bool text = false) const;
  };
  [[nodiscard]] Line connect_agent();
  // A browser with a log-in of kRepresentative.
  [[nodiscard]] Line connect_browser();

  // Gives the representative these rights in the first group.
  void set_rights(Rights rights);
  // Carries out an administrator's decision; a refusal has no effect.
  void decide(MachineDecisions::Done decision);
  // Works until the loop and the database have nothing to do.
  void settle();

  [[nodiscard]] Parts& parts() { return *parts_; }
  [[nodiscard]] Admission& admission() { return *admission_; }
  [[nodiscard]] MachineDecisions& decisions() { return decisions_; }
  [[nodiscard]] DatabaseThread& database() { return *database_; }
  [[nodiscard]] boost::asio::io_context& io() { return io_; }
  [[nodiscard]] const Log& log() const { return log_; }
  [[nodiscard]] const Limits& limits() const { return limits_; }
  [[nodiscard]] const std::string& logged() const { return log_text_; }
  [[nodiscard]] std::string folder() const { return folder_.string(); }
  [[nodiscard]] std::string file() const { return (folder_ / "relay.db").string(); }
  [[nodiscard]] PersonId person(const char* name) { return parts_->people.person_named(name)->id; }

 private:
  const std::filesystem::path folder_;
  std::string log_text_;
  const Log log_;
  const Limits limits_;
  Connections connections_{limits_, log_};
  boost::asio::io_context io_;
  std::unique_ptr<DatabaseThread> database_;
  Spools spools_;
  std::unique_ptr<Parts> parts_;
  std::unique_ptr<Admission> admission_;
  MachineDecisions decisions_;
  RateCounter enrolments_;
  RateCounter refusals_;
  RateCounter renames_;
  RateCounter log_ins_;
  AgentContext agents_;
};

}  // namespace vlk::relay::fuzz
