// The prompt that asks the local user whether a representative may connect. Both functions run on the UI
// thread.
#pragma once

#include <cstdint>

namespace vlk::agent {

struct MainWindow;

// Asks about the pending request and sends the answer. Runs a message loop of its own until the user has
// answered or the prompt is withdrawn. A second prompt may open over the first.
void run_consent_prompt(MainWindow& main);

// Withdraws the prompt of `session` if it is open: the same answer is sent as if the user had declined.
void cancel_consent_prompt(std::uint32_t session);

}  // namespace vlk::agent
