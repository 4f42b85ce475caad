// The switch that decides whether changes of the local clipboard are sent.
#pragma once

namespace vlk::agent {

// Turns the sending of clipboard changes on or off; initially it is off. Changes while it is off are never
// sent. Received content is applied in both states. Callable on any thread.
void SetClipboardSessionActive(bool active);

}  // namespace vlk::agent
