// Starts the console session's agent with the token of the user who is logged on there.
#include "system/session_launcher.h"

#include <windows.h>
#include <userenv.h>
#include <wtsapi32.h>

#include <string>

#include "platform/own_path.h"
#include "platform/win32/handles_win32.h"
#include "system/stop_event_win32.h"

namespace vlk::agent {

struct ChildProcess {
  UniqueKernelHandle handle;
};

namespace {

using UniqueEnvironment = UniqueHandle<LPVOID, DestroyEnvironmentBlock>;

UniqueKernelHandle primary_token_of(DWORD session) {
  HANDLE queried = nullptr;
  if (!WTSQueryUserToken(session, &queried)) return nullptr;
  const UniqueKernelHandle token(queried);
  HANDLE primary = nullptr;
  DuplicateTokenEx(token.get(), MAXIMUM_ALLOWED, nullptr, SecurityIdentification, TokenPrimary, &primary);
  return UniqueKernelHandle(primary);
}

bool start_copy(HANDLE token, PROCESS_INFORMATION& process) {
  LPVOID made = nullptr;
  CreateEnvironmentBlock(&made, token, FALSE);
  const UniqueEnvironment environment(made);  // the call below accepts null
  wchar_t desktop[] = L"winsta0\\default";
  STARTUPINFOW startup = {};
  startup.cb = sizeof(startup);
  startup.lpDesktop = desktop;
  std::wstring command = quoted_own_path() + L" --unattended --from-service";
  return CreateProcessAsUserW(token, nullptr, command.data(), nullptr, nullptr, FALSE,
                              NORMAL_PRIORITY_CLASS | CREATE_UNICODE_ENVIRONMENT, environment.get(), nullptr,
                              &startup, &process) != FALSE;
}

bool start_copy_in(DWORD session, PROCESS_INFORMATION& process) {
  const UniqueKernelHandle token = primary_token_of(session);
  return token && start_copy(token.get(), process);
}

}  // namespace

void ChildProcessDeleter::operator()(ChildProcess* process) const {
  delete process;
}

std::uint32_t active_console_session() {
  return WTSGetActiveConsoleSessionId();
}

UniqueProcess launch_in_console_session() {
  const DWORD session = WTSGetActiveConsoleSessionId();
  if (session == kNoSession) return nullptr;
  PROCESS_INFORMATION process = {};
  if (!start_copy_in(session, process)) return nullptr;
  const UniqueKernelHandle thread(process.hThread);
  return UniqueProcess(new ChildProcess{UniqueKernelHandle(process.hProcess)});
}

void terminate_process(ChildProcess& process) {
  TerminateProcess(process.handle.get(), 0);
}

WaitResult wait_for_stop_or_child(StopEvent& stop_event, ChildProcess* child, std::uint32_t timeout_ms) {
  const HANDLE handles[] = {stop_event.handle.get(), child != nullptr ? child->handle.get() : nullptr};
  const DWORD result = WaitForMultipleObjects(child != nullptr ? 2 : 1, handles, FALSE, timeout_ms);
  if (result == WAIT_OBJECT_0) return WaitResult::Stop;
  if (child != nullptr && result == WAIT_OBJECT_0 + 1) return WaitResult::ChildEnded;
  return WaitResult::Neither;
}

}  // namespace vlk::agent
