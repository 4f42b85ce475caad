// The programs that wait for pictures: connections to a port of the loopback address. Each gets a byte when
// it has connected and the published picture is up to date, and a byte at each later picture. A byte that a
// program has not read yet stands for all later pictures.
#pragma once

#include <poll.h>

#include <vector>

namespace vantelink_doubles {

class Waiters {
 public:
  // Listens on a free port. Throws std::runtime_error on failure.
  Waiters();
  ~Waiters();
  Waiters(const Waiters&) = delete;
  Waiters& operator=(const Waiters&) = delete;

  int port() const { return port_; }
  bool empty() const { return waiters_.empty(); }

  // Appends the descriptors to wait for.
  void add_descriptors(std::vector<pollfd>& descriptors) const;
  // Accepts those who have connected, and forgets those who have ended their connection.
  void follow_connections();

  void wake_all();  // after a new picture
  void wake_new();  // those who connected since the last call; the picture is up to date

 private:
  struct Waiter {
    int socket;
    bool woken;  // since it connected
  };
  int listener_;
  int port_;
  std::vector<Waiter> waiters_;
};

}  // namespace vantelink_doubles
