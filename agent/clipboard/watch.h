// The switch that decides whether changes of the local clipboard are sent.
#pragma once

namespace vlk::agent {

// Initially false. While false, changes of the clipboard are lost and not sent later. Received content is
// applied in both states. Callable on any thread.
void SetClipboardSessionActive(bool active);

}  // namespace vlk::agent
