// The replaced calls for services, tokens and processes.
#include "tests/windows/system/service_seam.h"

#include <userenv.h>
#include <wtsapi32.h>

#include <cstdio>
#include <cstring>

#include "tests/windows/support/counted_calls.h"
#include "tests/windows/support/seam.h"

namespace vlk::test {
namespace {

const DWORD test_thread = GetCurrentThreadId();

bool works(const std::string& name) {
  return !script.failing.contains(name) && !call_fails(name.c_str());
}

std::string narrow(const wchar_t* text) {
  std::string result;
  for (; text != nullptr && *text != 0; ++text)
    result += static_cast<char>(*text);
  return result;
}

// Asked for before a test can make the call fail.
const std::string own_path = [] {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return narrow(path);
}();

// The names of the scripted handles.
const std::vector<std::string> names = {"manager", "service", "queried", "primary", "process", "thread"};
constexpr std::uintptr_t kFirstHandle = 0xABC00000;

constexpr DWORD kNoConsole = 0xFFFFFFFF;

// The agent waits for the process, so the process's handle is an event that is never set.
HANDLE handle(const std::string& name) {
  static const HANDLE process = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (name == "process") return process;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) return reinterpret_cast<HANDLE>(kFirstHandle + i * 4);
  }
  return nullptr;
}

std::string name_of(const void* value) {
  for (const std::string& name : names) {
    if (handle(name) == value) return name;
  }
  return value == nullptr ? "null" : "other";
}

template <typename Handle = SC_HANDLE>
Handle open(const std::string& name) {
  ++script.open_handles;
  return static_cast<Handle>(handle(name));
}

void note(const std::string& call) {
  script.calls.push_back(call);
}

// A command without a path, which an agent writes that cannot ask for its own, is recorded as a call.
void expect_command(const wchar_t* command, const std::string& switches) {
  if (narrow(command) == "\"\" " + switches) return note("no path");
  EXPECT_EQ(narrow(command), '"' + own_path + "\" " + switches);
}

std::string hex(DWORD value) {
  char text[16];
  std::snprintf(text, sizeof text, "%lx", value);
  return text;
}

SC_HANDLE WINAPI open_manager(LPCWSTR machine, LPCWSTR database, DWORD access) {
  note("OpenSCManager " + narrow(machine) + narrow(database) + hex(access));
  return works("OpenSCManager") ? open("manager") : nullptr;
}

SC_HANDLE WINAPI create_service(SC_HANDLE manager, LPCWSTR name, LPCWSTR display, DWORD access, DWORD type,
                                DWORD start, DWORD error, LPCWSTR path, LPCWSTR group, LPDWORD tag,
                                LPCWSTR dependencies, LPCWSTR account, LPCWSTR password) {
  EXPECT_TRUE(group == nullptr && tag == nullptr && dependencies == nullptr && account == nullptr &&
              password == nullptr);
  expect_command(path, "--service");
  note("CreateService " + name_of(manager) + '|' + narrow(name) + '|' + narrow(display) + '|' + hex(access) +
       ' ' + hex(type) + ' ' + hex(start) + ' ' + hex(error));
  if (works("CreateService")) return open("service");
  SetLastError(script.create_error);
  return nullptr;
}

SC_HANDLE WINAPI open_service(SC_HANDLE manager, LPCWSTR name, DWORD access) {
  note("OpenService " + name_of(manager) + ' ' + narrow(name) + ' ' + hex(access));
  return works("OpenService") ? open("service") : nullptr;
}

BOOL WINAPI start_service(SC_HANDLE service, DWORD count, LPCWSTR* arguments) {
  EXPECT_TRUE(count == 0 && arguments == nullptr);
  note("StartService " + name_of(service));
  return works("StartService");
}

BOOL WINAPI control_service(SC_HANDLE service, DWORD control, LPSERVICE_STATUS status) {
  EXPECT_NE(status, nullptr);
  note("ControlService " + name_of(service) + ' ' + std::to_string(control));
  return works("ControlService");
}

BOOL WINAPI delete_service(SC_HANDLE service) {
  note("DeleteService " + name_of(service));
  return works("DeleteService");
}

BOOL WINAPI close_service_handle(SC_HANDLE service) {
  note("CloseServiceHandle " + name_of(service));
  --script.open_handles;
  return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
  EXPECT_EQ(context, nullptr);
  note("Register " + narrow(name));
  script.handler = handler;
  return works("Register") ? reinterpret_cast<SERVICE_STATUS_HANDLE>(0x57A7) : nullptr;
}

BOOL WINAPI set_status(SERVICE_STATUS_HANDLE handle, LPSERVICE_STATUS status) {
  EXPECT_EQ(handle, reinterpret_cast<SERVICE_STATUS_HANDLE>(0x57A7));
  EXPECT_EQ(status->dwServiceType, 16u);
  EXPECT_EQ(status->dwWin32ExitCode, 0u);
  if (status->dwCheckPoint != 0) last_check_point = status->dwCheckPoint;
  note("Status " + std::to_string(status->dwCurrentState) + ' ' + std::to_string(status->dwControlsAccepted) +
       ' ' + std::to_string(status->dwCheckPoint) + ' ' + std::to_string(status->dwWaitHint));
  if (status->dwCurrentState == SERVICE_RUNNING) {
    for (const DWORD control : script.controls)
      EXPECT_EQ(script.handler(control, 0, nullptr, nullptr), 0u);
  }
  return works("Status");
}

BOOL WINAPI start_dispatcher(const SERVICE_TABLE_ENTRYW* table) {
  note("Dispatch " + narrow(table[0].lpServiceName));
  EXPECT_TRUE(table[1].lpServiceName == nullptr && table[1].lpServiceProc == nullptr);
  if (!works("Dispatch")) return FALSE;
  table[0].lpServiceProc(0, nullptr);
  return TRUE;
}

DWORD WINAPI console_session() {
  return works("Session") ? script.session : kNoConsole;
}

BOOL WINAPI duplicate_token(HANDLE token, DWORD access, LPSECURITY_ATTRIBUTES attributes,
                            SECURITY_IMPERSONATION_LEVEL level, TOKEN_TYPE type, PHANDLE result) {
  EXPECT_EQ(attributes, nullptr);
  note("DuplicateToken " + name_of(token) + ' ' + hex(access) + ' ' + std::to_string(level) + ' ' +
       std::to_string(type));
  if (!works("DuplicateToken")) return FALSE;
  *result = open<HANDLE>("primary");
  return TRUE;
}

BOOL WINAPI create_process(HANDLE token, LPCWSTR application, LPWSTR command,
                           LPSECURITY_ATTRIBUTES process_attributes, LPSECURITY_ATTRIBUTES thread_attributes,
                           BOOL inherit, DWORD flags, LPVOID environment, LPCWSTR folder,
                           LPSTARTUPINFOW startup, LPPROCESS_INFORMATION process) {
  EXPECT_TRUE(application == nullptr && process_attributes == nullptr && thread_attributes == nullptr &&
              !inherit && folder == nullptr);
  expect_command(command, "--unattended --from-service");
  STARTUPINFOW expected = {};
  expected.cb = 104;
  expected.lpDesktop = startup->lpDesktop;
  EXPECT_EQ(std::memcmp(startup, &expected, sizeof expected), 0);
  note("CreateProcess " + name_of(token) + ' ' + hex(flags) +
       (environment != nullptr ? " block " : " null ") + narrow(startup->lpDesktop));
  if (!works("CreateProcess")) return FALSE;
  process->hProcess = open<HANDLE>("process");
  process->hThread = open<HANDLE>("thread");
  return TRUE;
}

BOOL WINAPI terminate_process(HANDLE process, UINT code) {
  note("Terminate " + name_of(process) + ' ' + std::to_string(code));
  return works("Terminate");
}

BOOL WINAPI close_handle(HANDLE value) {
  static auto* const system = real<decltype(close_handle)>("kernel32.dll", "CloseHandle");
  if (name_of(value) == "other") return system(value);
  note("Close " + name_of(value));
  --script.open_handles;
  return TRUE;
}

DWORD WINAPI wait_for_objects(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
  static auto* const system = real<decltype(wait_for_objects)>("kernel32.dll", "WaitForMultipleObjects");
  if (script.on_wait && GetCurrentThreadId() == test_thread) script.on_wait(count, milliseconds);
  if (!works("Wait")) return WAIT_FAILED;
  return system(count, handles, all, script.waits_end_at_once ? 0 : milliseconds);
}

BOOL WINAPI allocate_sid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second, DWORD,
                         DWORD, DWORD, DWORD, DWORD, DWORD, PSID* sid) {
  note("Sid " + std::to_string(authority->Value[5]) + ' ' + std::to_string(count) + ' ' +
       std::to_string(first) + ' ' + std::to_string(second));
  if (!works("Sid")) return FALSE;
  *sid = open("service");
  return TRUE;
}

BOOL WINAPI check_membership(HANDLE token, PSID sid, PBOOL member) {
  note("Member " + name_of(token) + ' ' + name_of(sid));
  if (!works("Member")) return FALSE;
  *member = script.member;
  return TRUE;
}

PVOID WINAPI free_sid(PSID sid) {
  note("FreeSid " + name_of(sid));
  --script.open_handles;
  return nullptr;
}

int block;

}  // namespace

ServiceScript script;
DWORD last_check_point = 0;

void ServiceTest::SetUp() {
  script = ServiceScript();
}

void ServiceTest::TearDown() {
  EXPECT_EQ(script.open_handles, 0);
}

}  // namespace vlk::test

extern "C" {
void* __imp_OpenSCManagerW = reinterpret_cast<void*>(vlk::test::open_manager);
void* __imp_CreateServiceW = reinterpret_cast<void*>(vlk::test::create_service);
void* __imp_OpenServiceW = reinterpret_cast<void*>(vlk::test::open_service);
void* __imp_StartServiceW = reinterpret_cast<void*>(vlk::test::start_service);
void* __imp_ControlService = reinterpret_cast<void*>(vlk::test::control_service);
void* __imp_DeleteService = reinterpret_cast<void*>(vlk::test::delete_service);
void* __imp_CloseServiceHandle = reinterpret_cast<void*>(vlk::test::close_service_handle);
void* __imp_RegisterServiceCtrlHandlerExW = reinterpret_cast<void*>(vlk::test::register_handler);
void* __imp_SetServiceStatus = reinterpret_cast<void*>(vlk::test::set_status);
void* __imp_StartServiceCtrlDispatcherW = reinterpret_cast<void*>(vlk::test::start_dispatcher);
void* __imp_WTSGetActiveConsoleSessionId = reinterpret_cast<void*>(vlk::test::console_session);
void* __imp_DuplicateTokenEx = reinterpret_cast<void*>(vlk::test::duplicate_token);
void* __imp_CreateProcessAsUserW = reinterpret_cast<void*>(vlk::test::create_process);
void* __imp_TerminateProcess = reinterpret_cast<void*>(vlk::test::terminate_process);
void* __imp_CloseHandle = reinterpret_cast<void*>(vlk::test::close_handle);
void* __imp_WaitForMultipleObjects = reinterpret_cast<void*>(vlk::test::wait_for_objects);
void* __imp_AllocateAndInitializeSid = reinterpret_cast<void*>(vlk::test::allocate_sid);
void* __imp_CheckTokenMembership = reinterpret_cast<void*>(vlk::test::check_membership);
void* __imp_FreeSid = reinterpret_cast<void*>(vlk::test::free_sid);

// wtsapi32.h and userenv.h declare plain functions without import pointers, so the functions are replaced.
BOOL WINAPI WTSQueryUserToken(ULONG session, PHANDLE token) {
  using namespace vlk::test;
  note("QueryUserToken " + std::to_string(session));
  if (script.on_query) script.on_query(session);
  if (!works("QueryUserToken")) return FALSE;
  *token = open<HANDLE>("queried");
  return TRUE;
}

BOOL WINAPI CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit) {
  using namespace vlk::test;
  EXPECT_FALSE(inherit);
  note("CreateEnvironment " + name_of(token));
  if (!works("CreateEnvironment")) return FALSE;
  *environment = &block;
  ++script.open_handles;
  return TRUE;
}

BOOL WINAPI DestroyEnvironmentBlock(LPVOID environment) {
  using namespace vlk::test;
  EXPECT_EQ(environment, &block);
  note("DestroyEnvironment");
  --script.open_handles;
  return TRUE;
}
}
