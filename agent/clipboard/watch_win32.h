// The local clipboard's changes, as the window's procedure tells of them. UI thread only, and on it for as
// long as the work takes: reading files, encoding images, and the blocking send. All failures are silent.
#pragma once

#include <cstddef>
#include <functional>

#include <windows.h>

namespace vlk::agent {

// Watches the clipboard for the life of the window, which is also its owner while content is applied. Once
// only. The sink takes each finished payload, which lives until it returns.
void StartClipboardWatch(HWND window, std::function<void(const unsigned char* data, std::size_t size)> sink);

// Sends what the clipboard holds now, unless no session is active or the change is our own. For
// WM_CLIPBOARDUPDATE.
void OnClipboardUpdate();

}  // namespace vlk::agent
