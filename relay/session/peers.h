// The connected peers and the sessions between them, as plain records that the parts of this folder share.
//
// A peer is owned by the coroutine that serves its connection. It has a Channel but no socket, so this folder
// can be tested without a network.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/h264/stream.h"
#include "relay/net/channel.h"

namespace vlk::relay {

// The connection of an agent, logged in or not.
struct AgentPeer {
  std::shared_ptr<Channel> channel;
  std::string address;  // with port
  std::string id;       // empty until the log-in
  // The agent was refused and an error was sent. The connection stays open for a while to delay the next
  // attempt.
  bool refused = false;
  // The relay does not read from the agent, because a browser has not read the messages that were sent to it.
  bool paused = false;
  Clock::time_point since = Clock::now();  // the time of the refusal or, before the log-in, of the connection
  Clock::time_point heartbeat_sent{};
  bool heartbeat_open = false;  // the last heartbeat has not been echoed yet
  std::uint32_t heartbeat_number = 0;
  std::optional<std::int64_t> round_trip_ms;
  H264Stream video;  // the stream that the agent sends to the browser
};

// The connection of a representative's browser.
struct ConsolePeer {
  std::shared_ptr<Channel> channel;
  std::string address;  // with port
  std::string representative;
  Bytes login;  // hash of the log-in's token
  // The relay does not read from the browser, because a machine or the browser itself has not read the
  // messages that were sent to it.
  bool paused = false;
  Clock::time_point login_checked = Clock::now();
};

enum class SessionState { Asked, Accepted, Ended };

// A representative's session with a machine. Only the class Sessions changes it.
struct Session {
  std::uint32_t number = 0;
  std::shared_ptr<AgentPeer> agent;
  std::shared_ptr<ConsolePeer> console;
  SessionState state = SessionState::Asked;
  Clock::time_point asked = Clock::now();

  [[nodiscard]] bool accepted() const { return state == SessionState::Accepted; }
};

}  // namespace vlk::relay
