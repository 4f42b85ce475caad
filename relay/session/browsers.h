// The connected browsers of representatives: who receives the list of machines, and whose log-in has ended.
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

// The tag of list messages, of which only the newest matters. No session has this number.
inline constexpr std::uint32_t kListTag = 0xFFFFFFFF;

// Used on the relay's one thread.
class Browsers {
 public:
  // `log` outlives this.
  explicit Browsers(const Log& log) : log_(log) {}

  // `machines` is the list that the browser receives at once.
  void add(const std::shared_ptr<ConsolePeer>& peer, const nlohmann::json& machines);
  void remove(const std::shared_ptr<ConsolePeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<ConsolePeer>>& all() const { return browsers_; }

  // Sends the list of machines to every browser. A list that still waits in a queue is replaced.
  void send_list(const nlohmann::json& machines) const;

  // Tells a browser that its request was refused. `fields` is an object with further members for the
  // console's code.
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent,
              const nlohmann::json& fields) const;
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent = {}) const;

  // Closes the browsers of a log-in that ended.
  void end_login(const Bytes& login);
  // Closes the browsers of all other log-ins of this representative.
  void end_other_logins(const std::string& representative, const Bytes& login);
  void close_all(CloseCode code, const std::string& reason);

 private:
  const ThreadChecker thread_;
  const Log& log_;
  std::set<std::shared_ptr<ConsolePeer>> browsers_;
};

}  // namespace vlk::relay
