// The question whether a representative may connect. All of it runs on the UI thread.
#pragma once

#include <cstdint>

namespace vlk::agent {

struct MainWindow;

// Asks about the pending request and sends the answer; returns when the user has answered or the prompt was
// withdrawn, and runs a message loop of its own until then. A second prompt may open over the first.
void run_consent_prompt(MainWindow& main);

// Withdraws the prompt of this session if it stands: it answers as if the user had declined.
void cancel_consent_prompt(std::uint32_t session);

}  // namespace vlk::agent
