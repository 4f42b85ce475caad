// Sends changes of the local clipboard, which the window procedure reports. Runs on the UI thread, which it
// blocks while it reads files, encodes images and sends. All failures are silent.
#pragma once

#include <cstddef>
#include <functional>

#include <windows.h>

namespace vlk::agent {

// Watches the clipboard as long as the window exists. The window also becomes the clipboard's owner when
// content is applied. Called once. The sink gets each payload, which is valid until it returns.
void StartClipboardWatch(HWND window, std::function<void(const unsigned char* data, std::size_t size)> sink);

// Sends the clipboard's present content, unless no session is active or the agent itself made the change.
// Called for WM_CLIPBOARDUPDATE.
void OnClipboardUpdate();

}  // namespace vlk::agent
