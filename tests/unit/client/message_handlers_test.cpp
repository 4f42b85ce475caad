// Compares the table of message handlers with the table of all messages.
#include <algorithm>
#include <set>

#include <gtest/gtest.h>

#include "client/agent_client.h"

namespace vlk::agent {
namespace {

// The messages to the agent that have no handler. There are none today.
const std::set<Msg> kIgnored = {};

TEST(MessageHandlers, EveryMessageToTheAgentHasExactlyOneHandler) {
  for (const MessageRule& rule : kMessageRules) {
    const auto rows =
        std::ranges::count(AgentClient::message_handlers(), rule.code, &AgentClient::MessageHandler::code);
    const bool expected = rule.to_agent() && !kIgnored.contains(rule.code);
    EXPECT_EQ(rows, expected ? 1 : 0) << "message " << static_cast<int>(rule.code);
  }
}

TEST(MessageHandlers, EveryHandlerBelongsToAKnownMessage) {
  for (const AgentClient::MessageHandler& row : AgentClient::message_handlers()) {
    EXPECT_NE(find_rule(row.code), nullptr) << "message " << static_cast<int>(row.code);
    EXPECT_NE(row.handle, nullptr) << "message " << static_cast<int>(row.code);
  }
}

}  // namespace
}  // namespace vlk::agent
