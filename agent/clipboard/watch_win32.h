// Sends the content of the local clipboard after each change. The window procedure reports the changes. Runs
// on the UI thread, which it blocks while it reads files, encodes images and sends. All failures are silent.
#pragma once

#include <windows.h>

#include <cstddef>
#include <functional>

namespace vlk::agent {

// Makes Windows report clipboard changes to `window` as long as the window exists. The window also becomes
// the clipboard's owner when received content is applied. Called once. `sink` is called with each payload to
// send; the bytes are valid until it returns.
void StartClipboardWatch(HWND window, std::function<void(const unsigned char* data, std::size_t size)> sink);

// Sends the clipboard's present content. Does nothing while no session is active, and for a short time after
// the agent itself has changed the clipboard. Called for WM_CLIPBOARDUPDATE.
void OnClipboardUpdate();

}  // namespace vlk::agent
