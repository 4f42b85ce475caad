// The desktop that the program desktop_mirror copies from an X display. If the environment variable
// kDesktopMirrorVariable is set, the double shows this desktop instead of the board's outputs.
#pragma once

#include <windows.h>

#include <cstdint>
#include <memory>

#include "tests/doubles/mirror_memory.h"

namespace vantelink_doubles {

// Whether the environment selects the mirrored desktop.
bool shows_mirror();

// The size of the last published picture; without one, the size of the screen.
SIZE mirror_size();

// A connection to desktop_mirror. One thread at a time may use it.
class Mirror {
 public:
  // Connects and waits until the published picture is up to date. Returns null if desktop_mirror does not
  // run.
  static std::shared_ptr<Mirror> connect();
  ~Mirror();
  Mirror(const Mirror&) = delete;
  Mirror& operator=(const Mirror&) = delete;

  // Waits until a picture with a higher number than `number` is published. Returns S_OK,
  // DXGI_ERROR_WAIT_TIMEOUT, or DXGI_ERROR_ACCESS_LOST if desktop_mirror has ended.
  HRESULT wait_for_change(std::int64_t number, UINT timeout_ms) const;

  // The number of the last published picture, and its size.
  std::int64_t published() const;
  SIZE size() const;

  // Does what vantelink_doubles::update_copy() does.
  bool update_copy(PictureCopy& copy) const;

 private:
  Mirror() = default;
  std::uint8_t* file_ = nullptr;
  std::uintptr_t socket_ = ~std::uintptr_t{0};  // a SOCKET; here INVALID_SOCKET
};

}  // namespace vantelink_doubles
