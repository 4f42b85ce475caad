// The questions to the machines' users whether a session may begin: when a machine may be asked.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "relay/base/clock.h"
#include "relay/base/counting/rate_counter.h"

namespace vlk::relay {

// An agent shows a box for each request, also while another box stands, and answers each when its user closes
// it. Two boxes over each other confuse the user, and the lower one could no longer be withdrawn. So a
// machine is not asked again before it has answered the question before. Used on the relay's one thread.
class Questions {
 public:
  struct Bounds {
    std::chrono::milliseconds lost{120'000};  // after this time, a box without an answer counts as gone
    std::size_t refused = 3;                  // questions that may end without a session in `window`
    std::chrono::seconds window{60};
    std::size_t counted_machines = 10'000;
  };
  enum class Ruling : std::uint8_t { Ask, BoxStands, TooOften };

  explicit Questions(const Bounds& bounds)
      : bounds_(bounds), refused_(bounds.refused, bounds.window, bounds.counted_machines) {}

  [[nodiscard]] Ruling may_ask(const std::string& machine, Clock::time_point now) {
    if (boxes_.contains(machine)) return Ruling::BoxStands;
    return refused_.exhausted(machine, now) ? Ruling::TooOften : Ruling::Ask;
  }
  // True if the machine's last question has ended and its box may still stand.
  [[nodiscard]] bool stands(const std::string& machine) const {
    const auto box = boxes_.find(machine);
    return box != boxes_.end() && box->second.ended;
  }
  void asked(const std::string& machine, std::uint32_t session) { boxes_[machine] = {session, {}}; }
  // Reports a question of an earlier run of the relay, which counts as ended without an answer now.
  void restore(const std::string& machine, std::uint32_t session, Clock::time_point now) {
    boxes_[machine] = {session, now};
  }
  // Reports that the question ended without an answer, for instance because it was withdrawn. The box may
  // stand until its answer arrives.
  void unanswered(const std::string& machine, std::uint32_t session, Clock::time_point now) {
    const auto box = boxes_.find(machine);
    if (box == boxes_.end() || box->second.session != session || box->second.ended) return;
    box->second.ended = now;
    refused_.add(machine, now);
  }
  // Reports the machine's answer, which can arrive after the session's end.
  void answered(const std::string& machine, std::uint32_t session, bool accepted, Clock::time_point now) {
    const auto box = boxes_.find(machine);
    if (box == boxes_.end() || box->second.session != session) return;
    const bool counted = box->second.ended.has_value();
    boxes_.erase(box);
    if (!accepted && !counted) refused_.add(machine, now);
  }
  // Removes the boxes that count as gone, and returns their machines.
  [[nodiscard]] std::vector<std::string> take_lost(Clock::time_point now) {
    std::vector<std::string> machines;
    std::erase_if(boxes_, [&](const auto& entry) {
      const Box& box = entry.second;
      if (!box.ended || now - *box.ended < bounds_.lost) return false;
      machines.push_back(entry.first);
      return true;
    });
    return machines;
  }

 private:
  struct Box {
    std::uint32_t session = 0;
    std::optional<Clock::time_point> ended{};  // when the question ended without an answer
  };

  const Bounds bounds_;
  std::map<std::string, Box> boxes_;  // by the machine's id
  RateCounter refused_;
};

}  // namespace vlk::relay
