// Writes the JSON messages for browsers.
#include "relay/wire/console_messages.h"

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace vlk::relay {

std::string session_message(std::uint32_t session, const std::string& agent, const std::string& state,
                            const nlohmann::json& fields) {
  nlohmann::json message = {{"type", "session"}, {"session", session}, {"agent", agent}, {"state", state}};
  message.update(fields);
  return dump(message);
}

std::string too_large_message(std::uint32_t session, std::uint8_t type, std::uint64_t bytes) {
  return dump(
      nlohmann::json{{"type", "too-large"}, {"session", session}, {"message", type}, {"bytes", bytes}});
}

std::string error_message(const std::string& sentence, const std::string& agent,
                          const nlohmann::json& fields) {
  nlohmann::json message = {{"type", "error"}, {"message", sentence}};
  if (!agent.empty()) message["agent"] = agent;
  message.update(fields);
  return dump(message);
}

}  // namespace vlk::relay
