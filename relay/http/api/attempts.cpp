// Counts failed log-ins.
#include "relay/http/api/attempts.h"

namespace vlk::relay {
namespace {

constexpr std::chrono::seconds kCodePause{5};  // between two codes of an account with many wrong codes
constexpr std::size_t kWrongCodes = 20;        // after which an account's codes wait

std::string both(const std::string& name, const std::string& source) {
  return name + '\n' + source;
}

}  // namespace

Attempts::Attempts(const Limits& limits)
    : limits_(limits),
      by_name_and_address_(limits.failures_per_name, limits.failure_window, limits.counted_keys),
      by_address_(limits.failures_per_address, limits.failure_window, limits.counted_keys),
      by_name_(limits.failures_per_account, limits.failure_window, limits.counted_keys),
      codes_(kWrongCodes, limits.failure_window, limits.counted_keys),
      code_pause_(1, kCodePause, limits.counted_keys) {}

bool Attempts::refused(const std::string& name, const std::string& source) {
  const auto now = Clock::now();
  return by_name_and_address_.exhausted(both(name, source), now) || by_address_.exhausted(source, now);
}

bool Attempts::slowed(const std::string& name) {
  return by_name_.exhausted(name, Clock::now());
}

bool Attempts::known(const std::string& name, const std::string& source) const {
  return known_.contains({name, source});
}

std::size_t Attempts::failures_of(const std::string& source) {
  return by_address_.count(source, Clock::now());
}

Attempts::Reached Attempts::add(const std::string& name, const std::string& source) {
  const auto now = Clock::now();
  const bool slowed_before = by_name_.exhausted(name, now);
  const bool refused_before = refused(name, source);
  by_name_and_address_.add(both(name, source), now);
  by_address_.add(source, now);
  by_name_.add(name, now);
  return {!slowed_before && by_name_.exhausted(name, now), !refused_before && refused(name, source)};
}

void Attempts::withdraw(const std::string& name, const std::string& source) {
  by_name_and_address_.take_back(both(name, source));
  by_address_.take_back(source);
  by_name_.take_back(name);
}

// The failures of other names from this address remain, and so do those of this name from other addresses.
void Attempts::succeeded(const std::string& name, const std::string& source) {
  by_name_and_address_.forget(both(name, source));
  by_address_.take_back(source);
  by_name_.take_back(name);
  if (known_.size() >= limits_.counted_keys) known_.erase(known_.begin());
  known_.insert({name, source});
}

bool Attempts::code_must_wait(const std::string& name) {
  const auto now = Clock::now();
  return codes_.exhausted(name, now) && code_pause_.exhausted(name, now);
}

void Attempts::add_wrong_code(const std::string& name) {
  const auto now = Clock::now();
  codes_.add(name, now);
  code_pause_.add(name, now);
}

}  // namespace vlk::relay
