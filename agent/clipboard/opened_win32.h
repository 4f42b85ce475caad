// The open clipboard and its owner, which both directions share. UI thread only.
#pragma once

#include <utility>

#include <windows.h>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {

inline HWND ClipboardWindow = nullptr;  // set when the watch starts

// The clipboard, open for this window until the end of the object's life; nobody else can use it meanwhile.
class OpenedClipboard {
 public:
  OpenedClipboard() : opened_(OpenClipboard(ClipboardWindow) != FALSE) {}
  ~OpenedClipboard() {
    if (opened_) CloseClipboard();
  }
  OpenedClipboard(const OpenedClipboard&) = delete;
  OpenedClipboard& operator=(const OpenedClipboard&) = delete;
  explicit operator bool() const { return opened_; }

 private:
  const bool opened_;
};

// Hands memory to the open clipboard, which owns it from then on; freed when the clipboard does not take it.
inline void publish(UINT format, UniqueGlobal memory) {
  if (SetClipboardData(format, memory.get()) != nullptr) (void)memory.release();
}

}  // namespace vlk::agent
