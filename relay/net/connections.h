// All connections of the relay: how many there may be, which of them go first, and by when each must have
// gone on.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "relay/base/clock.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"

namespace vlk::relay {

// What a connection has shown so far.
enum class Standing {
  Stranger,  // nothing: before an agent's or a representative's log-in
  Waiting,   // an agent that has just enrolled
  Known,     // a log-in
};

// Used on the relay's one thread.
class Connections {
 public:
  // `limits` and `log` outlive this object.
  Connections(const Limits& limits, const Log& log) : limits_(limits), log_(log) {}

  // The place of one connection, until the object's end. Owned by the coroutine that serves the connection;
  // ends before the Connections.
  class Place {
   public:
    ~Place();
    Place(const Place&) = delete;
    Place& operator=(const Place&) = delete;

    // Sets the function that ends the connection. It is called at most once, with the reason for the log.
    void on_cut(std::function<void(const std::string&)> cut) { cut_ = std::move(cut); }
    // Cuts the connection unless this function or never_expires() is called within the limit.
    void expires_after(std::chrono::milliseconds Limits::*limit);
    void never_expires();
    // Counts the connection with others of its standing from now on. Cuts an older one of the same standing
    // if there are too many. Returns false if there is no place.
    [[nodiscard]] bool rise(Standing standing);
    // Counts the connection under another source, which a proxy has named. Returns false if there is no
    // place.
    [[nodiscard]] bool move(std::string source, std::string peer);
    [[nodiscard]] const std::string& source() const { return source_; }
    // The peer's address with its port, for the log.
    [[nodiscard]] const std::string& peer() const { return peer_; }
    [[nodiscard]] Standing standing() const { return standing_; }
    // Whether the connection comes from a trusted proxy.
    void set_proxied(bool proxied) { proxied_ = proxied; }
    [[nodiscard]] bool proxied() const { return proxied_; }

   private:
    friend class Connections;
    Place(Connections& all, std::string source, std::string peer)
        : all_(all), source_(std::move(source)), peer_(std::move(peer)) {}

    Connections& all_;
    std::string source_;
    std::string peer_;
    Standing standing_ = Standing::Stranger;
    bool proxied_ = false;
    bool counted_ = false;
    std::list<Place*>::iterator at_{};
    Clock::time_point since_ = Clock::now();
    std::chrono::milliseconds Limits::*limit_ = nullptr;
    std::function<void(const std::string&)> cut_;
  };

  // Gives a new connection a place among the strangers. An idle stranger of the same source, or of the source
  // with the most strangers, goes if there are too many. Returns null if there is no place.
  [[nodiscard]] std::unique_ptr<Place> admit(std::string source, std::string peer);
  // Cuts the connections whose time is over.
  void tick(Clock::time_point now);
  // Connections, and those that were cut and have not been cleared away yet.
  [[nodiscard]] std::size_t size() const { return alive_; }
  // The connections of this standing, and how many there may be.
  [[nodiscard]] std::size_t count(Standing standing) const {
    return pools_[static_cast<std::size_t>(standing)].places.size();
  }
  [[nodiscard]] std::size_t limit(Standing standing) const;
  // Connections that have ended so far.
  [[nodiscard]] std::size_t ended() const { return ended_; }

 private:
  // The connections of one standing, that with the oldest change first.
  struct Pool {
    std::list<Place*> places;
    std::map<std::string, std::size_t> by_source;
  };
  [[nodiscard]] Pool& pool(Standing standing) { return pools_[static_cast<std::size_t>(standing)]; }
  [[nodiscard]] std::size_t limit_of_source(Standing standing) const;
  void enter(Place& place);
  void leave(Place& place);
  void cut(Place& place, const std::string& reason);
  // Makes room for one more connection of `source`. Returns false if there is none.
  [[nodiscard]] bool make_room(Standing standing, const std::string& source);
  void cut_oldest(Pool& its, const std::string& source);

  const ThreadChecker thread_;
  const Limits& limits_;
  const Log& log_;
  Pool pools_[3];
  std::set<Place*> timed_;  // those that have a time limit
  std::size_t alive_ = 0;
  std::size_t ended_ = 0;
};

}  // namespace vlk::relay
