// The question whether to install a newer agent.
#pragma once

#include "shell/main_window.h"
#include "update/update.h"

namespace vlk::agent {

// Asks the local user about the offer, unless that very version was skipped before, and does what the answer
// is. On the UI thread; modal, and dispatches the window's messages meanwhile.
void run_update_prompt(MainWindow& main, const UpdateOffer& offer);

}  // namespace vlk::agent
