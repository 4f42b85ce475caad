// Whether changes of the local clipboard are sent.
#pragma once

namespace vlk::agent {

// While false, as it is at first, changes of the clipboard are lost; nothing reads them later. Received
// content is applied either way. Callable from any thread.
void SetClipboardSessionActive(bool active);

}  // namespace vlk::agent
