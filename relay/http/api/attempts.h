// Failed log-ins: who must wait, and who is known to be good.
#pragma once

#include <set>
#include <string>
#include <utility>

#include "relay/base/counting/rate_counter.h"
#include "relay/base/limits.h"

namespace vlk::relay {

// Counts wrong passwords and codes by name, by address, and by both. A name and an address that fail together
// too often are refused for a while, and so is an address that fails too often with any names. An account
// that fails too often from all addresses together is slowed, never refused. Used on the relay's one thread.
class Attempts {
 public:
  explicit Attempts(const Limits& limits);

  [[nodiscard]] bool refused(const std::string& name, const std::string& source);
  // True if the account is attacked: its attempts from addresses that are not known wait for their turn.
  [[nodiscard]] bool slowed(const std::string& name);
  // True if a person of this name has logged in from this address before.
  [[nodiscard]] bool known(const std::string& name, const std::string& source) const;
  // The number of recent failures of the address.
  [[nodiscard]] std::size_t failures_of(const std::string& source);

  // What begins with a failure.
  struct Reached {
    bool slowed = false;      // the account is attacked
    bool locked_out = false;  // the name from this address, or the address, is refused
  };
  // A failure is counted before the password is verified, so that simultaneous attempts cannot pass the
  // limit; a success takes it back.
  Reached add(const std::string& name, const std::string& source);
  void succeeded(const std::string& name, const std::string& source);
  // Takes back an attempt that was not verified, because the relay had too much to do.
  void withdraw(const std::string& name, const std::string& source);

  // Wrong codes of people whose password was right. True if the next code must wait.
  [[nodiscard]] bool code_must_wait(const std::string& name);
  void add_wrong_code(const std::string& name);

 private:
  const Limits& limits_;
  RateCounter by_name_and_address_;
  RateCounter by_address_;
  RateCounter by_name_;
  RateCounter codes_;                                    // wrong codes by name
  RateCounter code_pause_;                               // the last wrong code by name
  std::set<std::pair<std::string, std::string>> known_;  // names and addresses
};

}  // namespace vlk::relay
