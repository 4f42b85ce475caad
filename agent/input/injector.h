// Remote mouse and keyboard: batches from the wire become the system's own input events. Nothing is ever
// answered; the only trace is the debug log.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlk::agent {

// Injects one batch, if a session is active. Runs on the connection thread and waits for the system.
void InjectInputBatch(const unsigned char* payload, std::size_t length);

// Fires the secure-attention sequence (Ctrl+Alt+Del) through "sas.dll", whether or not a session is active.
void SendSecureAttention();

// While false, batches are lost. Callable from any thread.
void SetInputSessionActive(bool active);

// Rectangle, in virtual-desktop pixels, that pointer positions refer to; a width or height of 0 or less means
// the whole virtual desktop. Survives the end of a session. Callable from any thread; a reader may see a mix
// of an old and a new rectangle for a moment.
void SetActiveMonitorRect(std::int32_t left, std::int32_t top, std::int32_t width, std::int32_t height);

}  // namespace vlk::agent
