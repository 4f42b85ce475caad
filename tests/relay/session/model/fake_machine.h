// An agent without a screen: keeps the agent's own rules about boxes, sessions, its one streamer and uploads.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "relay/session/model/wire.h"

namespace vlk::relay::model {

class FakeMachine {
 public:
  // Carries out a message of the relay. Returns what is wrong with it, or an empty text.
  [[nodiscard]] std::string receive(int code, std::uint32_t session, const std::string& payload);
  // The end of the connection. A box stays on the screen; what was not sent is lost.
  void disconnect();

  std::optional<std::uint32_t> box{};     // the session whose question stands on the screen
  std::deque<std::uint32_t> withdrawn{};  // closed boxes, each of which is answered with a rejection
  std::set<std::uint32_t> active{};       // the sessions that the local user is shown
  std::uint32_t streaming = 0;            // the session of the stream; 0 without a stream
  Shown shown{};                          // by the stream
  std::map<std::uint32_t, std::set<char>> pressed{};  // buttons that are down, by session
  std::set<std::uint32_t> uploads{};                  // files that are open

 private:
  void choose(int code, const std::string& payload);
  void inject(std::uint32_t session, const std::string& payload);
};

}  // namespace vlk::relay::model
