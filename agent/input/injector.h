// Injects the representative's mouse and keyboard events, which arrive in batches, into the system. No reply
// is sent; failures are reported only in the debug log.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

// Injects one batch if a session is active. Runs on the connection thread and blocks until the system has
// accepted it.
void InjectInputBatch(const unsigned char* payload, std::size_t length);

// Sends the secure-attention sequence (Ctrl+Alt+Del) through "sas.dll", whether or not a session is active.
void SendSecureAttention();

// Turns the injection of batches on or off; initially it is off. Batches that arrive while it is off are
// dropped. Callable on any thread.
void SetInputSessionActive(bool active);

// Sets the rectangle, in virtual-desktop pixels, that pointer positions refer to. A width or height of 0 or
// less means the whole virtual desktop. The rectangle stays set after the end of a session. Callable on any
// thread; during a change a reader may see a mix of the old and the new rectangle.
void SetActiveMonitorRect(std::int32_t left, std::int32_t top, std::int32_t width, std::int32_t height);

}  // namespace vlk::agent
