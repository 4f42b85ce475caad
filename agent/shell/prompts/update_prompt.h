// The prompt that asks the local user whether to install a newer agent.
#pragma once

namespace vlk::agent {

struct MainWindow;
struct UpdateOffer;

// Asks about the offer, unless the user skipped that version before, and carries out the answer. Runs on the
// UI thread; the dialog is modal and dispatches the window's messages while it is open.
void run_update_prompt(MainWindow& main, const UpdateOffer& offer);

}  // namespace vlk::agent
