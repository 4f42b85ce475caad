// The connected browsers of representatives: sends them the list of machines, and closes those whose log-in
// ended.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/log.h"
#include "relay/base/thread_checker.h"
#include "relay/session/peers.h"

namespace vlk::relay {

// The channel tag of the messages with the list of machines, by which a newer list replaces a queued one. No
// session has this number, because session numbers are tags too.
inline constexpr std::uint32_t kListTag = 0xFFFFFFFF;

// Used on the relay's one thread.
class Browsers {
 public:
  // `log` outlives this object.
  explicit Browsers(const Log& log) : log_(log) {}

  // Adds a browser and sends it the list `machines`.
  void add(const std::shared_ptr<ConsolePeer>& peer, const nlohmann::json& machines);
  void remove(const std::shared_ptr<ConsolePeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<ConsolePeer>>& all() const { return browsers_; }

  // Sends the list of machines to every browser. It replaces an older list that is still queued.
  void send_list(const nlohmann::json& machines) const;

  // Sends a browser the message that its request was refused. `fields` is an object with further members for
  // the console's code.
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent,
              const nlohmann::json& fields) const;
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent = {}) const;

  // Closes the connections of all browsers with this log-in, which has ended.
  void end_login(const Bytes& login);
  // Closes the connections of the representative's browsers that have another log-in than `login`.
  void end_other_logins(const std::string& representative, const Bytes& login);
  void close_all(CloseCode code, const std::string& reason);

 private:
  const ThreadChecker thread_;
  const Log& log_;
  std::set<std::shared_ptr<ConsolePeer>> browsers_;
};

}  // namespace vlk::relay
