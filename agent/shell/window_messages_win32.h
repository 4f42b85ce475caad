// The private messages of the main window, which are the only way for other threads to reach it, and the
// posting of their payloads.
#pragma once

#include <windows.h>

#include <memory>
#include <new>
#include <string>
#include <type_traits>

#include "platform/text.h"

namespace vlk::agent {

// A payload in wParam is on the heap. Once its message is posted, it belongs to the window procedure, which
// ignores a null payload.
enum : UINT {
  WM_AGENT_STATUS = WM_APP + 1,  // wParam: Status, lParam: count of representatives
  WM_CONSENT_REQUEST,            // a session request is pending
  WM_TRAY_NOTIFY,                // a mouse event of the tray icon
  WM_STATUS_TEXT,                // wParam: std::wstring on the heap
  WM_CLIPBOARD_INBOUND,          // wParam: std::vector<std::uint8_t> on the heap
  WM_UPDATE_OFFER,               // wParam: UpdateOffer on the heap
  WM_EXIT_FOR_UPDATE,            // the installer was started
  WM_SHOW_MAIN,                  // posted by a second copy of the program
  WM_CONSENT_CANCEL,             // wParam: session
};

// Posts a message with the result of `make`, on the heap, as its payload. The payload is null if memory runs
// out, also inside `make`. A failure to post is ignored. Callable on any thread.
template <typename Make>
void post_made_payload(HWND window, UINT message, const Make& make) {
  using Payload = std::invoke_result_t<const Make&>;
  Payload* payload = nullptr;
  try {
    payload = new Payload(make());
  } catch (const std::bad_alloc&) {
    // The message is then posted with a null payload, which the window procedure ignores.
  }
  PostMessageW(window, message, reinterpret_cast<WPARAM>(payload), 0);
}

// Posts a message with a copy of `value` as its payload.
template <typename Value>
void post_payload(HWND window, UINT message, const Value& value) {
  post_made_payload(window, message, [&value] { return Value(value); });
}

// The payload of a received message, now owned by the caller; may be null.
template <typename Payload>
[[nodiscard]] std::unique_ptr<Payload> take_payload(WPARAM wparam) {
  return std::unique_ptr<Payload>(reinterpret_cast<Payload*>(wparam));
}

// Post WM_STATUS_TEXT. `text` is in UTF-8.
inline void post_status_text(HWND window, const std::wstring& text) {
  post_payload(window, WM_STATUS_TEXT, text);
}
inline void post_status_text(HWND window, const std::string& text) {
  post_made_payload(window, WM_STATUS_TEXT, [&text] { return Utf8ToWide(text); });
}

}  // namespace vlk::agent
