// The event that asks the service to stop, shared by the file that sets it and the file that waits for it.
#pragma once

#include "platform/win32/handles_win32.h"
#include "system/session_launcher.h"

namespace vlk::agent {

struct StopEvent {
  UniqueKernelHandle handle;  // manual-reset
};

}  // namespace vlk::agent
