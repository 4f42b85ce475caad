// The connected browsers of representatives: sends them the list of machines, and closes those whose log-in
// ended.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/session/machines.h"
#include "relay/session/peers.h"

namespace vlk::relay {

// The channel tag of the messages with the list of machines. No session has this number, because session
// numbers are tags too.
inline constexpr std::uint32_t kListTag = 0xFFFFFFFF;

// Used on the relay's one thread.
//
// A browser gets the whole list once, and then its changes, each with the next version number. Every text is
// built once for all browsers with the same view.
class Browsers {
 public:
  // The arguments outlive this object.
  Browsers(Machines& machines, const Log& log) : machines_(machines), log_(log) {}

  // Adds a browser and sends it what its view shows.
  void add(const std::shared_ptr<ConsolePeer>& peer);
  void remove(const std::shared_ptr<ConsolePeer>& peer);
  [[nodiscard]] const std::set<std::shared_ptr<ConsolePeer>>& all() const { return browsers_; }

  // Sends the changes since the last call to every browser.
  void send_changes();
  // Sends the whole list to a browser that has missed a change.
  void send_list(ConsolePeer& peer);
  // Gives the browser another view, and sends it what the view shows.
  void set_view(ConsolePeer& peer, std::shared_ptr<const MachineView> view);

  // Sends a browser the message that its request was refused. `fields` is an object with further members for
  // the console's code.
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent,
              const nlohmann::json& fields) const;
  void refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent = {}) const;

  // Closes the connections of all browsers with this log-in, which has ended for this reason.
  void end_login(const Bytes& login, const std::string& reason);
  // Informs all browsers with this log-in that it ends in so many seconds. Returns false if there are none.
  bool warn_login(const Bytes& login, std::int64_t seconds) const;
  void close_all(CloseCode code, const std::string& reason);

 private:
  using Text = std::shared_ptr<const Bytes>;
  // The list as browsers with the same view see it.
  struct Feed {
    std::shared_ptr<const MachineView> view;
    std::size_t browsers = 0;
    std::uint64_t version = 0;
    std::set<std::string> shown;  // ids
    Text whole;                   // the message with the whole list; null when it is out of date
    std::size_t whole_bytes = 0;  // of the last such message
  };

  Feed& enter_feed(const std::shared_ptr<const MachineView>& view);
  void leave_feed(const std::shared_ptr<const MachineView>& view);
  [[nodiscard]] std::optional<std::string> entry(const Feed& feed, const MachineRecord& record) const;
  const Text& whole_list(Feed& feed) const;
  // The message with the changes of these machines; null if the view shows none of them.
  Text changes(Feed& feed, const std::set<std::string>& ids) const;
  void send_whole(ConsolePeer& peer, Feed& feed) const;
  void send_change(ConsolePeer& peer, Feed& feed, const Text& change) const;
  void send_waiting(ConsolePeer& peer) const;

  const ThreadChecker thread_;
  Machines& machines_;
  const Log& log_;
  std::set<std::shared_ptr<ConsolePeer>> browsers_;
  std::map<std::string, Feed> feeds_;  // by the view's key
  std::size_t waiting_ = 0;            // how many machines waited for approval at the last change
};

}  // namespace vlk::relay
