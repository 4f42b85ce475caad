// The log-ins of people: their stages, when they end, and when they were confirmed last.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/people/people.h"
#include "relay/storage/people/access_store.h"

namespace vlk::relay {

// Seconds for which the password or a code that was given again counts.
inline constexpr std::int64_t kStepUpSeconds = 300;
// How long before the end of a log-in its browsers are warned, in seconds.
inline constexpr std::int64_t kLoginWarning = 60;

struct Login {
  LoginRow row{};
  std::int64_t step_up_until = 0;
  std::int64_t warned_at = 0;   // 0 means not warned
  std::int64_t stored_use = 0;  // the stored value of row.last_used
};

// A copy of the stored log-ins. Each log-in is stored first, and added here after the commit. All times are
// in seconds since 1970. Used on the relay's one thread.
class Logins {
 public:
  // Called with the hash of a log-in's token and the reason when the log-in ends, so that its browsers are
  // closed.
  using Ended = std::function<void(const Bytes& token_hash, const std::string& reason)>;
  // Called when the browsers of a log-in must be warned, with the seconds until its end. Returns false if it
  // has no browser.
  using Warn = std::function<bool(const Bytes& token_hash, std::int64_t seconds)>;

  // Called when a log-in's time is over, before the Ended function: `idle` if it was not used for too long.
  using Over = std::function<void(const LoginRow& row, bool idle)>;

  void on_end(Ended ended) { ended_ = std::move(ended); }
  void on_over(Over over) { over_ = std::move(over); }
  void on_warning(Warn warn) { warn_ = std::move(warn); }

  // Replaces all log-ins by the stored ones. A log-in that is not among them ends; one that is there keeps
  // what is only in memory.
  void replace(std::vector<LoginRow> rows);
  void add(LoginRow row);
  // Replaces the stored values of a log-in; does nothing if it has ended.
  void update(LoginRow row);
  // Ends one log-in, or all log-ins of a person except `keep`, which may be empty.
  void end(const Bytes& token_hash, const std::string& reason);
  void end_all_of(PersonId person, const Bytes& keep, const std::string& reason);

  // The log-in with this hash; null if there is none or it has ended by its time. The result is valid until
  // the next call of a function that is not const.
  [[nodiscard]] const Login* find(const Bytes& token_hash, std::int64_t now) const;
  [[nodiscard]] const Login* find_id(std::int64_t id) const;
  [[nodiscard]] std::vector<const Login*> all() const;
  [[nodiscard]] std::size_t count_of(PersonId person) const;
  // True if the person has a log-in that was made from this address, which has no port.
  [[nodiscard]] bool has_address(PersonId person, const std::string& address) const;

  // Each does nothing if there is no such log-in. A use extends the time without use.
  void use(const Bytes& token_hash, std::int64_t now);
  // The password or a code was given again: `expires_at` is the log-in's new end.
  void step_up(const Bytes& token_hash, std::int64_t now, std::int64_t expires_at);
  [[nodiscard]] bool stepped_up(const Bytes& token_hash, std::int64_t now) const;

  // When the log-in ends without further use: its absolute time, or the time without use, but never less than
  // kLoginWarning after its browsers were warned.
  [[nodiscard]] static std::int64_t ends_at(const Login& login);
  // Without use, the log-in ends at this time; 0 without such a limit.
  [[nodiscard]] static std::int64_t idle_at(const Login& login);

  // Warns log-ins that end soon and ends those whose time is over. To be called at least once a second.
  void tick(std::int64_t now);
  // The log-ins that were used since the last call: when, by their ids. For storing.
  [[nodiscard]] std::map<std::int64_t, std::int64_t> take_used();

 private:
  const ThreadChecker thread_{};
  std::map<Bytes, Login> logins_;  // by the hash of the token
  Ended ended_;
  Over over_;
  Warn warn_;
};

}  // namespace vlk::relay
