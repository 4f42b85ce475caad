// The H.264 double as a test or benchmark uses it: registers the double's transforms with the system, and
// shares a board with them. The DLL is loaded from the folder "doubles" beside the program or from the
// program's own folder.
#pragma once

#include <windows.h>

#include "tests/doubles/boards.h"

namespace vlk::test {

// The double's library, loaded until the program ends, and the board that it shares with this program.
class Double {
 public:
  Double();

  // Registers the transforms named in the text ("sync", "async", both or none) and removes the others.
  bool Register(const wchar_t* kinds) { return install_ != nullptr && SUCCEEDED(install_(TRUE, kinds)); }
  // Ends the waits for events of all asynchronous transforms. GetEvent fails from then on.
  void ShutDownEvents() { shut_down_events_(); }
  vantelink_doubles::CodecBoard& board() { return *board_; }
  bool shared() const { return board_ != &fallback_; }

 private:
  using Install = HRESULT WINAPI(BOOL, const wchar_t*);
  vantelink_doubles::CodecBoard fallback_ = {};
  vantelink_doubles::CodecBoard* board_ = nullptr;
  Install* install_ = nullptr;
  void(WINAPI* shut_down_events_)() = nullptr;
};

Double& the_double();

}  // namespace vlk::test
