// The private messages of the one window: the only way by which other threads reach it.
#pragma once

#include <windows.h>

namespace vlk::agent {

// A heap payload in wParam belongs to the window procedure from the moment of posting; a
// null one is ignored.
enum : UINT {
  WM_AGENT_STATUS = WM_APP + 1,  // wParam: Status, lParam: count of representatives
  WM_CONSENT_REQUEST,            // the pending request waits for the local user
  WM_TRAY_NOTIFY,                // of the notification area
  WM_STATUS_TEXT,                // wParam: heap std::wstring
  WM_CLIPBOARD_INBOUND,          // wParam: heap std::vector<std::uint8_t>
  WM_UPDATE_OFFER,               // wParam: heap UpdateOffer
  WM_EXIT_FOR_UPDATE,            // the installer was started
  WM_SHOW_MAIN,                  // posted by a second copy of the program
  WM_CONSENT_CANCEL,             // wParam: session
};

}  // namespace vlk::agent
