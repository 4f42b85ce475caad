// Restarts the machine with the privilege of the logged-on user.
#include "system/reboot.h"

#include <reason.h>

#include "platform/debug_log.h"
#include "platform/win32/handles_win32.h"

namespace vlk::agent {
namespace {

// Whether the variable is set and not empty. GetEnvironmentVariable then returns the length of the value, or
// the size of the buffer that it needs; otherwise it returns 0.
bool simulation_requested() {
  char value[8];
  return GetEnvironmentVariableA("VLK_SIMULATE_REBOOT", value, sizeof(value)) != 0;
}

// Enables the privilege that a restart needs. A failure is ignored: the restart then fails, which is not
// reported.
void enable_shutdown_privilege() {
  HANDLE opened = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &opened)) return;
  const UniqueKernelHandle token(opened);
  TOKEN_PRIVILEGES privileges = {};
  privileges.PrivilegeCount = 1;
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  LookupPrivilegeValueW(nullptr, L"SeShutdownPrivilege", &privileges.Privileges[0].Luid);
  AdjustTokenPrivileges(token.get(), FALSE, &privileges, 0, nullptr, nullptr);
}

}  // namespace

bool reboot_machine() {
  const bool simulate = simulation_requested();
  append_debug_log("reboot: requested (simulate=%d)\n", simulate ? 1 : 0);
  if (simulate) return true;
  enable_shutdown_privilege();
  ExitWindowsEx(EWX_REBOOT | EWX_FORCEIFHUNG,
                SHTDN_REASON_MAJOR_APPLICATION | SHTDN_REASON_MINOR_MAINTENANCE);
  return false;
}

}  // namespace vlk::agent
