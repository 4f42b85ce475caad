// The updates that the relay offers to agents, and who fetched them.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>

#include <boost/asio/any_io_executor.hpp>
#include <nlohmann/json_fwd.hpp>

#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/http/replies.h"
#include "relay/http/updates/update_manifest.h"
#include "relay/storage/trail/entry.h"

namespace vlk::relay {

// True if the path is that of the agents' manifest, /version.json, or is under /download/.
[[nodiscard]] bool names_update(std::string_view path);

// Offers the files of a signed manifest from memory, so that what is verified is what is sent. A thread of
// its own watches the folder and verifies it again after each change. Everything else is used on the relay's
// one thread.
class Updates {
 public:
  struct Settings {
    std::string folder;                         // need not exist
    std::string key;                            // file of the public key; without it nothing is offered
    std::chrono::milliseconds interval{2'000};  // between two looks at the folder
    // Receives the rows for the audit trail; may be null.
    std::function<void(TrailEntry)> record{};
  };
  // Reads the folder before it returns. `log` outlives this object. `executor` is that of the relay's thread;
  // this object is destroyed when its context no longer runs. Throws std::runtime_error with a sentence for
  // the operator if the key cannot be used.
  Updates(Settings settings, boost::asio::any_io_executor executor, const Log& log);
  ~Updates();
  Updates(const Updates&) = delete;
  Updates& operator=(const Updates&) = delete;

  // Replies with the agents' manifest or with the installer, or with an error. Counts who fetches the
  // installer: `peer` is the agent's address with the port.
  [[nodiscard]] Reply answer(const Request& request, const std::string& peer);

  // What is offered, who fetched it, and why nothing is offered, for administrators.
  [[nodiscard]] nlohmann::json report() const;

 private:
  // What one look at the folder found. Without an offer, `problem` says why, unless the folder is empty.
  struct Offer {
    UpdateManifest manifest;
    UpdateFile installer;
    std::map<std::string, std::shared_ptr<const std::string>, std::less<>> files;  // by name
  };
  struct Found {
    std::shared_ptr<const Offer> offer;
    std::string problem;
  };
  struct Fetch {
    std::string source;
    std::string address{};  // the last one of this source
    std::int64_t time = 0;  // of the last fetch, in seconds since 1970
    std::uint64_t count = 0;
  };

  [[nodiscard]] Found look() const;
  [[nodiscard]] std::shared_ptr<const Offer> verified() const;
  void watch(std::string seen);
  void apply(Found found);
  void count(const std::string& peer);
  void record(TrailEntry row) const;

  const ThreadChecker thread_;
  const Settings settings_;
  const std::optional<UpdateKey> key_;
  const boost::asio::any_io_executor executor_;
  const Log& log_;
  Found now_;
  std::list<Fetch> fetched_;  // of the offered installer; the newest first
  std::uint64_t downloads_ = 0;
  std::set<std::string> recorded_;  // addresses with a row about the offered installer

  std::mutex lock_;
  std::condition_variable ended_;
  bool end_ = false;  // guarded by lock_
  std::thread watcher_;
};

}  // namespace vlk::relay
