// Opens the clipboard, for sending its content and for replacing it, and writes to it. Used on the UI thread
// only.
#pragma once

#include <windows.h>

#include <utility>

#include "platform/win32/handles_win32.h"

namespace vlk::agent {

inline HWND ClipboardWindow = nullptr;  // the main window, set when the watch starts

// Keeps the clipboard open for ClipboardWindow until destroyed. No other program can use the clipboard
// meanwhile. The object converts to false if the clipboard could not be opened.
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
