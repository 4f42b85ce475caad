// What administrators decide about machines and enrolment.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <boost/asio/awaitable.hpp>

#include "relay/admission/admission.h"
#include "relay/session/parts.h"

namespace vlk::relay {

// A decision that cannot be carried out; what() is a sentence for the administrator. Nothing has changed.
struct DecisionRefused : std::runtime_error {
  enum class Why { Unknown, Conflict, Invalid };
  DecisionRefused(Why reason, const std::string& sentence) : std::runtime_error(sentence), why(reason) {}
  Why why;
};

// Each function checks all machines first, stores the change with a row of the trail for each machine, and
// then applies it to the connected machines and to running sessions. Throws DecisionRefused or DatabaseError.
// Used on the relay's one thread.
class MachineDecisions {
 public:
  // The administrator and the address of the administrator's browser.
  struct By {
    std::string person;
    std::string address;
  };
  using Ids = std::vector<std::string>;
  using Done = boost::asio::awaitable<void>;
  // The largest number of machines in one decision, and the longest reason in bytes.
  static constexpr std::size_t kMachines = 1000;
  static constexpr std::size_t kReasonBytes = 500;
  // The longest time of an enrolment window, and its largest number of machines.
  static constexpr std::int64_t kWindowMinutes = 7 * 24 * 60;
  static constexpr std::int64_t kWindowMachines = 10'000;

  // The arguments outlive this object.
  MachineDecisions(Parts& parts, Admission& admission) : parts_(parts), admission_(admission) {}

  // Approves waiting machines into the group.
  [[nodiscard]] Done approve(const By& by, const Ids& ids, std::int64_t group);
  // Approves a waiting machine in the place of an older entry of the same computer: it gets the older one's
  // group, and the older entry is removed, so that its secret is worthless. Refused while the older machine
  // is connected.
  [[nodiscard]] Done replace(const By& by, const std::string& id, const std::string& older);
  // Refuses waiting machines.
  [[nodiscard]] Done refuse(const By& by, const Ids& ids);
  // Keeps machines from connecting.
  [[nodiscard]] Done block(const By& by, const Ids& ids, const std::string& reason);
  // A machine that had been refused waits again; one that had been blocked is approved again.
  [[nodiscard]] Done unblock(const By& by, const Ids& ids);
  // Keeps approved machines from having sessions.
  [[nodiscard]] Done quarantine(const By& by, const Ids& ids, const std::string& reason);
  // Ends a quarantine, or lets a machine connect again whose identity was used twice.
  [[nodiscard]] Done release(const By& by, const Ids& ids);
  // Closes the connections of machines, which connect again at once.
  [[nodiscard]] Done disconnect(const By& by, const Ids& ids);
  [[nodiscard]] Done move(const By& by, const Ids& ids, std::int64_t group);
  // Removes machines. An agent that is still installed enrols again as a new machine.
  [[nodiscard]] Done remove(const By& by, const Ids& ids);

  // Opens a window of so many minutes or machines, or both.
  [[nodiscard]] boost::asio::awaitable<std::int64_t> open_enrolment(const By& by, std::int64_t group,
                                                                    std::optional<std::int64_t> minutes,
                                                                    std::optional<std::int64_t> machines);
  [[nodiscard]] Done close_enrolment(By by, std::int64_t id);

 private:
  struct Change;
  [[nodiscard]] std::vector<MachineRecord> checked(const Ids& ids, std::vector<MachineState> states,
                                                   const char* wrong_state) const;
  [[nodiscard]] std::string checked_group(std::int64_t group) const;
  // Only these are coroutines, so that the others refuse at once.
  [[nodiscard]] Done carry_out(std::vector<Change> changes);
  [[nodiscard]] boost::asio::awaitable<std::int64_t> store_window(EnrolmentWindow window, TrailEntry row);
  [[nodiscard]] Done remove_window(std::int64_t id, TrailEntry row);
  void apply(const Change& change);

  Parts& parts_;
  Admission& admission_;
};

}  // namespace vlk::relay
