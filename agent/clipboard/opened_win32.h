// Opens the clipboard and writes to it, for both directions. UI thread only.
#pragma once

#include <utility>

#include <windows.h>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {

inline HWND ClipboardWindow = nullptr;  // set when the watch starts

// Keeps the clipboard open for this window. No other program can use it meanwhile. False if it could not be
// opened.
class [[nodiscard]] OpenedClipboard {
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

// Passes memory to the open clipboard, which then owns it. The memory is freed if the clipboard refuses it.
inline void publish(UINT format, UniqueGlobal memory) {
  if (SetClipboardData(format, memory.get()) != nullptr) (void)memory.release();
}

}  // namespace vlk::agent
