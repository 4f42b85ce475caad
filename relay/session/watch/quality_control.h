// Moves the rates of each machine's stream, and repairs a picture that stands still under input.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/log.h"
#include "relay/session/table/sessions.h"
#include "relay/session/watch/measures.h"
#include "relay/stream/stream_quality.h"

namespace vlk::relay {

// The choice in a browser's control message, or nothing if it is not valid.
[[nodiscard]] std::optional<StreamQuality::Choice> quality_choice(const nlohmann::json& message);

// Used on the relay's one thread.
class QualityControl {
 public:
  // The arguments outlive this object.
  QualityControl(Sessions& sessions, const Measures& measures, const Log& log)
      : sessions_(sessions), measures_(measures), log_(log) {}

  // The browser chooses for the stream of its session's machine. Ignored unless the session is running and
  // steers, or nothing is streamed.
  void choose(const ConsolePeer& console, std::uint32_t number, const StreamQuality::Choice& choice);
  // To be called several times a second, with the machines that are in a session. `measured` says that
  // Measures has just measured.
  void tick(const std::set<std::shared_ptr<AgentPeer>>& in_session, Clock::time_point now, bool measured);

 private:
  void adapt(AgentPeer& agent, Clock::time_point now);
  void watch(AgentPeer& agent, Clock::time_point now);
  void restart(AgentPeer& agent, const StreamRates& rates, const char* why);

  Sessions& sessions_;
  const Measures& measures_;
  const Log& log_;
  std::set<std::shared_ptr<AgentPeer>> watched_;  // at the last tick
};

}  // namespace vlk::relay
