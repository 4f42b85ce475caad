// The connected peers, and the sessions between them: plain records that the parts of this folder share.
//
// A peer is owned by its connection's coroutine. It holds a Channel and no socket, so everything here can be
// tested without a network.
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
  std::string address;   // with port
  std::string id;        // empty until the log-in
  bool refused = false;  // an error was sent; the connection stays open for a while to delay the next attempt
  bool paused = false;   // not being read, because a browser has not read what it was sent
  Clock::time_point since = Clock::now();
  Clock::time_point heartbeat_sent{};
  bool heartbeat_open = false;  // sent and not echoed yet
  std::uint32_t heartbeat_number = 0;
  std::optional<std::int64_t> round_trip_ms;
  H264Stream video;  // the stream that passes to the browser
};

// The connection of a representative's browser.
struct ConsolePeer {
  std::shared_ptr<Channel> channel;
  std::string address;  // with port
  std::string representative;
  Bytes login;  // hash of the log-in's token
  bool paused =
      false;  // not being read, because a machine or the browser itself has not read what it was sent
  Clock::time_point login_checked = Clock::now();
};

enum class SessionState { Asked, Accepted, Ended };

// A representative's session with a machine. Only Sessions changes it.
struct Session {
  std::uint32_t number = 0;
  std::shared_ptr<AgentPeer> agent;
  std::shared_ptr<ConsolePeer> console;
  SessionState state = SessionState::Asked;
  Clock::time_point asked = Clock::now();

  [[nodiscard]] bool accepted() const { return state == SessionState::Accepted; }
};

}  // namespace vlk::relay
