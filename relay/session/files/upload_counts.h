// Counts the bytes of each session's uploads that have left the relay, so that its console sends no further
// than a few megabytes ahead of the machine.
#pragma once

#include <cstdint>
#include <map>
#include <optional>

namespace vlk::relay {

// Used on the relay's one thread.
class UploadCounts {
 public:
  // Records bytes that the browser has sent, whatever becomes of them.
  void took(std::uint32_t session, std::uint64_t bytes) { sessions_[session].taken += bytes; }
  // Records bytes that were written to the machine or dropped. Returns the total of such bytes if the browser
  // is to be told, which is the case for each kReport bytes and when nothing is queued any more.
  [[nodiscard]] std::optional<std::uint64_t> passed(std::uint32_t session, std::uint64_t bytes) {
    const auto found = sessions_.find(session);
    if (found == sessions_.end()) return std::nullopt;
    Count& count = found->second;
    count.passed += bytes;
    if (count.passed - count.told < kReport && count.passed < count.taken) return std::nullopt;
    count.told = count.passed;
    return count.told;
  }
  // The bytes that the browser has sent in this session.
  [[nodiscard]] std::uint64_t taken(std::uint32_t session) const {
    const auto found = sessions_.find(session);
    return found == sessions_.end() ? 0 : found->second.taken;
  }
  struct Totals {
    std::uint64_t taken = 0;   // from the browser
    std::uint64_t passed = 0;  // written to the machine or dropped
  };
  // Both totals, for a browser that takes the session over and is to be told what follows.
  [[nodiscard]] Totals hand_over(std::uint32_t session) {
    Count& count = sessions_[session];
    count.told = count.passed;
    return {count.taken, count.passed};
  }
  void end(std::uint32_t session) { sessions_.erase(session); }

  static constexpr std::uint64_t kReport = 64 * 1024;

 private:
  struct Count {
    std::uint64_t taken = 0;
    std::uint64_t passed = 0;
    std::uint64_t told = 0;  // the total of `passed` that the browser knows
  };
  std::map<std::uint32_t, Count> sessions_;  // by session number
};

}  // namespace vlk::relay
