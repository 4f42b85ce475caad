// The question whether to install a newer agent.
#pragma once

namespace vlk::agent {

struct MainWindow;
struct UpdateOffer;

// Asks the local user about the offer, unless that very version was skipped before, and does what the answer
// is. On the UI thread; modal, and dispatches the window's messages meanwhile.
void run_update_prompt(MainWindow& main, const UpdateOffer& offer);

}  // namespace vlk::agent
