// The hashing of passwords, which takes 0.1 s and 64 MiB each time, on a thread of its own.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/thread_pool.hpp>

#include "relay/base/clock.h"
#include "relay/base/threads/thread_checker.h"

namespace vlk::relay {

// A bounded queue in front of the thread. Who is known to be good comes first, then the addresses with the
// fewest failures, and among these the newest request, so that a person with the right password does not wait
// for all the attempts of attackers. Used on the relay's one thread.
class PasswordWork {
 public:
  struct Bounds {
    std::size_t waiting = 64;             // requests in the queue
    std::size_t of_one_source = 8;        // requests of one address in the queue
    std::chrono::milliseconds pace{250};  // between two attempts on an account that is slowed
  };
  // Who asks, which decides the order.
  struct Asker {
    std::string account{};
    std::string source{};      // the address without the port
    bool known = false;        // logged in, or has logged in from this address before
    bool slowed = false;       // the account is attacked
    std::size_t failures = 0;  // recent failures of the address
  };

  explicit PasswordWork(const Bounds& bounds) : bounds_(bounds) {}
  PasswordWork() : PasswordWork(Bounds{}) {}
  ~PasswordWork();
  PasswordWork(const PasswordWork&) = delete;
  PasswordWork& operator=(const PasswordWork&) = delete;

  // Runs `work` on the thread in its turn. Returns false, without running it, if the queue is full of
  // requests that come first. To be called on the loop, on which it returns.
  [[nodiscard]] boost::asio::awaitable<bool> run(Asker asker, std::function<void()> work);

  [[nodiscard]] std::size_t waiting() const { return queue_.size(); }

 private:
  enum class State { Waiting, Done, Dropped };
  struct Entry {
    Asker asker;
    std::function<void()> work;
    std::uint64_t number = 0;
    State state = State::Waiting;
    std::shared_ptr<boost::asio::steady_timer> wake;  // cancelled when the state changes
  };
  using Entries = std::list<std::shared_ptr<Entry>>;

  [[nodiscard]] static bool comes_before(const Entry& a, const Entry& b);
  [[nodiscard]] bool make_room(const Entry& entry);
  void pump(const boost::asio::any_io_executor& loop);
  [[nodiscard]] Entries::iterator next(Clock::time_point now, Clock::time_point& later);
  void start(std::shared_ptr<Entry> entry, const boost::asio::any_io_executor& loop);

  const ThreadChecker thread_;
  const Bounds bounds_;
  Entries queue_;
  std::uint64_t last_number_ = 0;
  bool running_ = false;
  std::map<std::string, Clock::time_point> next_turn_;  // of accounts that are slowed
  std::unique_ptr<boost::asio::steady_timer> pause_;
  const std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  boost::asio::thread_pool pool_{1};
};

}  // namespace vlk::relay
