// The two threads of updates: one looks for an offer, the other fetches and starts the installer. Both are
// detached, own all that they touch, and reach the window by posting.
#pragma once

#include <cstdint>
#include <string>

#include <windows.h>

namespace vlk::agent {

// Looks once for a newer agent and posts WM_UPDATE_OFFER if there is one; silent otherwise. Host and port are
// resolved, the default no longer empty or 0.
void start_update_check(HWND window, const std::string& host, std::uint32_t port);

// Fetches that file of the server into the temporary folder, starts it and posts WM_EXIT_FOR_UPDATE. Progress
// and failures go to the status line. The file's name is used as it is, folders in it included.
void start_update_download(HWND window, const std::string& host, std::uint32_t port, const std::string& file);

// Posts WM_STATUS_TEXT with a copy of the text. Callable from any thread.
void post_status_text(HWND window, const std::wstring& text);

}  // namespace vlk::agent
