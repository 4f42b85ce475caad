// One of the encoder sessions that a graphics card has. The board limits their number.
#pragma once

#include <windows.h>

#include <memory>

namespace vantelink_doubles {

// The result of a call for which the card has no free session.
constexpr HRESULT kNoFreeSession = HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES);

class SessionSlot {
 public:
  // Null if all of the card's sessions are open.
  [[nodiscard]] static std::unique_ptr<SessionSlot> Take();
  ~SessionSlot();
  SessionSlot(const SessionSlot&) = delete;
  SessionSlot& operator=(const SessionSlot&) = delete;

  // Leaves the session open after this object's end.
  void Keep() { kept_ = true; }

 private:
  SessionSlot() = default;
  bool kept_ = false;
};

}  // namespace vantelink_doubles
