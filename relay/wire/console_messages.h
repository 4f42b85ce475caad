// The JSON messages that the relay sends to browsers about sessions and refused requests.
#pragma once

#include <cstdint>
#include <string>

#include <nlohmann/json_fwd.hpp>

namespace vlk::relay {

// The code of a refusal for a lack of rights, and the reason of a session that ended for it.
inline constexpr char kNoRightCode[] = "no-right";

// The message that reports a session's new state. `state` is "waiting", "accepted" or "ended"; `fields` is an
// object with further members: the "rights" of an accepted session, the "reason" of an end.
[[nodiscard]] std::string session_message(std::uint32_t session, const std::string& agent,
                                          const std::string& state, const nlohmann::json& fields);

// The message that reports that the relay dropped a machine's message because of its size. `type` is its
// code, `bytes` its size with the header.
[[nodiscard]] std::string too_large_message(std::uint32_t session, std::uint8_t type, std::uint64_t bytes);

// The message that reports a refused request, with a sentence for the representative. `agent` is the
// machine's id, or empty; `fields` is an object with further members for the console's code.
[[nodiscard]] std::string error_message(const std::string& sentence, const std::string& agent,
                                        const nlohmann::json& fields);

}  // namespace vlk::relay
