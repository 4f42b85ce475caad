// The service against a service manager, tokens and processes that only note what they are asked. Each test
// compares all calls in their order.
#include "system/service.h"

#include <cstdio>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <windows.h>

#include "tests/windows/support/seam.h"

#include <userenv.h>
#include <wtsapi32.h>

namespace {

using Lines = std::vector<std::string>;

// What the system answers; the handles are numbers that no real one has.
struct System {
  Lines calls;
  std::set<std::string> failing;  // names of calls
  DWORD create_error = ERROR_ACCESS_DENIED;
  DWORD session = 1;
  std::vector<DWORD> controls;  // sent to the handler as soon as the service runs
  LPHANDLER_FUNCTION_EX handler = nullptr;
  bool member = true;
  int open_handles = 0;
};
System fake;
DWORD last_check_point = 0;  // they count up through the life of the process, so through all tests

bool works(const std::string& name) {
  return !fake.failing.contains(name);
}

std::string narrow(const wchar_t* text) {
  std::string result;
  for (; text != nullptr && *text != 0; ++text)
    result += static_cast<char>(*text);
  return result;
}

std::string own_path() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  return narrow(path);
}

// A handle of ours: its name is in `names`.
const std::vector<std::string> names = {"manager", "service", "queried", "primary", "process", "thread"};
constexpr std::uintptr_t kFirstHandle = 0xABC00000;

// The process is waited for, so it is an event that is never set.
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
  ++fake.open_handles;
  return static_cast<Handle>(handle(name));
}

void note(const std::string& call) {
  fake.calls.push_back(call);
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
  EXPECT_EQ(narrow(path), '"' + own_path() + "\" --service");
  note("CreateService " + name_of(manager) + '|' + narrow(name) + '|' + narrow(display) + '|' + hex(access) +
       ' ' + hex(type) + ' ' + hex(start) + ' ' + hex(error));
  if (works("CreateService")) return open("service");
  SetLastError(fake.create_error);
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
  --fake.open_handles;
  return TRUE;
}

SERVICE_STATUS_HANDLE WINAPI register_handler(LPCWSTR name, LPHANDLER_FUNCTION_EX handler, LPVOID context) {
  EXPECT_EQ(context, nullptr);
  note("Register " + narrow(name));
  fake.handler = handler;
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
    for (const DWORD control : fake.controls)
      EXPECT_EQ(fake.handler(control, 0, nullptr, nullptr), 0u);
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
  return fake.session;
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
  EXPECT_EQ(narrow(command), '"' + own_path() + "\" --unattended --from-service");
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
  return TRUE;
}

BOOL WINAPI close_handle(HANDLE value) {
  static auto* const system = vlk::test::real<decltype(close_handle)>("kernel32.dll", "CloseHandle");
  if (name_of(value) == "other") return system(value);
  note("Close " + name_of(value));
  --fake.open_handles;
  return TRUE;
}

BOOL WINAPI allocate_sid(PSID_IDENTIFIER_AUTHORITY authority, BYTE count, DWORD first, DWORD second, DWORD,
                         DWORD, DWORD, DWORD, DWORD, DWORD, PSID* sid) {
  note("Sid " + std::to_string(authority->Value[5]) + ' ' + std::to_string(count) + ' ' +
       std::to_string(first) + ' ' + std::to_string(second));
  if (!works("Sid")) return FALSE;
  *sid = handle("service");
  return TRUE;
}

BOOL WINAPI check_membership(HANDLE token, PSID sid, PBOOL member) {
  note("Member " + name_of(token) + ' ' + name_of(sid));
  if (works("Member")) *member = fake.member;
  return works("Member");
}

PVOID WINAPI free_sid(PSID sid) {
  note("FreeSid " + name_of(sid));
  return nullptr;
}

int block;

}  // namespace

extern "C" {
void* __imp_OpenSCManagerW = reinterpret_cast<void*>(open_manager);
void* __imp_CreateServiceW = reinterpret_cast<void*>(create_service);
void* __imp_OpenServiceW = reinterpret_cast<void*>(open_service);
void* __imp_StartServiceW = reinterpret_cast<void*>(start_service);
void* __imp_ControlService = reinterpret_cast<void*>(control_service);
void* __imp_DeleteService = reinterpret_cast<void*>(delete_service);
void* __imp_CloseServiceHandle = reinterpret_cast<void*>(close_service_handle);
void* __imp_RegisterServiceCtrlHandlerExW = reinterpret_cast<void*>(register_handler);
void* __imp_SetServiceStatus = reinterpret_cast<void*>(set_status);
void* __imp_StartServiceCtrlDispatcherW = reinterpret_cast<void*>(start_dispatcher);
void* __imp_WTSGetActiveConsoleSessionId = reinterpret_cast<void*>(console_session);
void* __imp_DuplicateTokenEx = reinterpret_cast<void*>(duplicate_token);
void* __imp_CreateProcessAsUserW = reinterpret_cast<void*>(create_process);
void* __imp_TerminateProcess = reinterpret_cast<void*>(terminate_process);
void* __imp_CloseHandle = reinterpret_cast<void*>(close_handle);
void* __imp_AllocateAndInitializeSid = reinterpret_cast<void*>(allocate_sid);
void* __imp_CheckTokenMembership = reinterpret_cast<void*>(check_membership);
void* __imp_FreeSid = reinterpret_cast<void*>(free_sid);

// These two headers declare plain functions, so the functions themselves are replaced.
BOOL WINAPI WTSQueryUserToken(ULONG session, PHANDLE token) {
  note("QueryUserToken " + std::to_string(session));
  if (!works("QueryUserToken")) return FALSE;
  *token = open<HANDLE>("queried");
  return TRUE;
}

BOOL WINAPI CreateEnvironmentBlock(LPVOID* environment, HANDLE token, BOOL inherit) {
  EXPECT_FALSE(inherit);
  note("CreateEnvironment " + name_of(token));
  if (!works("CreateEnvironment")) return FALSE;
  *environment = &block;
  return TRUE;
}

BOOL WINAPI DestroyEnvironmentBlock(LPVOID environment) {
  EXPECT_EQ(environment, &block);
  note("DestroyEnvironment");
  return TRUE;
}
}

namespace vlk::agent {
namespace {

const std::string kCreate = "CreateService manager|VantelinkAgent|Maravek Remote Support|f01ff 10 2 1";

class Service : public testing::Test {
 protected:
  void SetUp() override { fake = System(); }
  void TearDown() override { EXPECT_EQ(fake.open_handles, 0); }

  // What is called to start and end the agent in a life that is stopped as soon as it runs.
  Lines launch_calls() {
    fake.controls = {SERVICE_CONTROL_STOP};
    EXPECT_TRUE(run_service_dispatcher());
    Lines launch;
    for (const std::string& call : fake.calls) {
      const bool of_service =
          call.starts_with("Dispatch") || call.starts_with("Register") || call.starts_with("Status");
      if (!of_service) launch.push_back(call);
    }
    return launch;
  }
};

TEST_F(Service, IsInstalledForThisExecutableAndStarted) {
  EXPECT_TRUE(install_service());
  EXPECT_EQ(fake.calls, (Lines{"OpenSCManager 2", kCreate, "StartService service",
                               "CloseServiceHandle service", "CloseServiceHandle manager"}));
}

TEST_F(Service, InstalledAgainIsOnlyStarted) {
  fake.failing = {"CreateService"};
  fake.create_error = ERROR_SERVICE_EXISTS;
  EXPECT_TRUE(install_service());
  EXPECT_EQ(fake.calls,
            (Lines{"OpenSCManager 2", kCreate, "OpenService manager VantelinkAgent f01ff",
                   "StartService service", "CloseServiceHandle service", "CloseServiceHandle manager"}));
}

TEST_F(Service, CountsAsInstalledEvenIfItDoesNotStart) {
  fake.failing = {"StartService"};
  EXPECT_TRUE(install_service());
}

TEST_F(Service, InstallationFailsWithoutTheManagerOrTheService) {
  fake.failing = {"OpenSCManager"};
  EXPECT_FALSE(install_service());
  EXPECT_EQ(fake.calls, (Lines{"OpenSCManager 2"}));
  fake = System();
  fake.failing = {"CreateService", "OpenService"};
  EXPECT_FALSE(install_service());
  EXPECT_EQ(fake.calls, (Lines{"OpenSCManager 2", kCreate, "CloseServiceHandle manager"}))
      << "only one that exists is opened";
  fake.calls.clear();
  fake.create_error = ERROR_SERVICE_EXISTS;
  EXPECT_FALSE(install_service());
}

TEST_F(Service, IsStoppedAndRemoved) {
  for (const bool stops : {true, false}) {
    fake = System();
    if (!stops) fake.failing = {"ControlService"};
    EXPECT_TRUE(uninstall_service());
    EXPECT_EQ(fake.calls, (Lines{"OpenSCManager f003f", "OpenService manager VantelinkAgent f01ff",
                                 "ControlService service 1", "DeleteService service",
                                 "CloseServiceHandle service", "CloseServiceHandle manager"}));
  }
}

TEST_F(Service, RemovalFailsWithoutTheManagerTheServiceOrTheRight) {
  for (const char* const step : {"OpenSCManager", "OpenService", "DeleteService"}) {
    fake.failing = {step};
    EXPECT_FALSE(uninstall_service()) << step;
  }
}

TEST_F(Service, AdministratorIsWhoTheEffectiveTokenSays) {
  EXPECT_TRUE(is_administrator());
  EXPECT_EQ(fake.calls, (Lines{"Sid 5 2 32 544", "Member null service", "FreeSid service"}));
  fake.member = false;
  EXPECT_FALSE(is_administrator());
  fake.member = true;
  fake.failing = {"Member"};
  EXPECT_FALSE(is_administrator());
  fake.failing = {"Sid"};
  fake.calls.clear();
  EXPECT_FALSE(is_administrator());
  EXPECT_EQ(fake.calls, (Lines{"Sid 5 2 32 544"}));
}

TEST_F(Service, ReportsEachMomentOfItsLifeAndEndsTheAgentWithIt) {
  fake.controls = {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_STOP};
  const DWORD first = last_check_point + 1;
  EXPECT_TRUE(run_service_dispatcher());
  EXPECT_EQ(fake.calls,
            (Lines{"Dispatch VantelinkAgent", "Register VantelinkAgent",
                   "Status 2 0 " + std::to_string(first) + " 3000", "Status 4 1 0 0",
                   "Status 3 1 " + std::to_string(first + 1) + " 3000", "QueryUserToken 1",
                   "DuplicateToken queried 2000000 1 1", "Close queried", "CreateEnvironment primary",
                   "CreateProcess primary 420 block winsta0\\default", "DestroyEnvironment", "Close primary",
                   "Close thread", "Terminate process 0", "Close process", "Status 1 1 0 0"}));
}

TEST_F(Service, EndsAtOnceWithoutItsHandler) {
  fake.failing = {"Register"};
  run_service_dispatcher();
  EXPECT_EQ(fake.calls, (Lines{"Dispatch VantelinkAgent", "Register VantelinkAgent"}));
}

TEST_F(Service, IsNoServiceWhenStartedByHand) {
  fake.failing = {"Dispatch"};
  EXPECT_FALSE(run_service_dispatcher());
}

TEST_F(Service, ShutdownWouldEndItToo) {
  fake.controls = {SERVICE_CONTROL_SHUTDOWN};
  EXPECT_TRUE(run_service_dispatcher());
  EXPECT_EQ(fake.calls.back(), "Status 1 1 0 0");
}

TEST_F(Service, StopsAtOnceWhileNobodyIsLoggedOn) {
  fake.failing = {"QueryUserToken"};
  EXPECT_EQ(launch_calls(), (Lines{"QueryUserToken 1"}));
}

TEST_F(Service, LaunchesNothingWithoutAConsoleSession) {
  fake.session = 0xFFFFFFFF;
  EXPECT_EQ(launch_calls(), Lines());
}

TEST_F(Service, LaunchesNothingWithoutAPrimaryToken) {
  fake.failing = {"DuplicateToken"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried"}));
}

TEST_F(Service, LaunchesWithoutAnEnvironmentIfThereIsNone) {
  fake.failing = {"CreateEnvironment"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried",
                   "CreateEnvironment primary", "CreateProcess primary 420 null winsta0\\default",
                   "Close primary", "Close thread", "Terminate process 0", "Close process"}));
}

TEST_F(Service, FailedLaunchLeavesNothingOpen) {
  fake.failing = {"CreateProcess"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried",
                   "CreateEnvironment primary", "CreateProcess primary 420 block winsta0\\default",
                   "DestroyEnvironment", "Close primary"}));
}

}  // namespace
}  // namespace vlk::agent
