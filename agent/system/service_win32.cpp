// The running service: its main function and its control handler.
#include "system/service.h"

#include <cstdint>
#include <string>

#include "platform/threads/file_errors.h"
#include "system/service_names_win32.h"
#include "system/service_status.h"
#include "system/stop_event_win32.h"
#include "system/supervisor.h"

namespace vlk::agent {
namespace {

// The service's main function and the control handler, which runs on the dispatcher's thread, use these
// variables without a lock: the two functions run at the same time only while the service stops.
SERVICE_STATUS service_status;
SERVICE_STATUS_HANDLE status_handle;
HANDLE stop_event;
std::uint32_t check_point = 1;

void report(ServiceMoment moment) {
  const ServiceReport values = make_report(moment, check_point);
  service_status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  service_status.dwCurrentState = values.state;
  service_status.dwControlsAccepted = values.accepted;
  service_status.dwWin32ExitCode = NO_ERROR;
  service_status.dwCheckPoint = values.check_point;
  service_status.dwWaitHint = values.wait_hint;
  SetServiceStatus(status_handle, &service_status);
}

DWORD WINAPI handle_control(DWORD control, DWORD, LPVOID, LPVOID) {
  if (ends_service(control)) {
    report(ServiceMoment::ControlReceived);
    SetEvent(stop_event);
  }
  return NO_ERROR;  // for every control, handled or not
}

void run_until_stopped() {
  StopEvent event{UniqueKernelHandle(CreateEventW(nullptr, TRUE, FALSE, nullptr))};
  stop_event = event.handle.get();
  report(ServiceMoment::EventCreated);
  supervise(event);
}

void WINAPI service_main(DWORD, LPWSTR*) {
  disable_file_error_boxes();
  status_handle = RegisterServiceCtrlHandlerExW(kServiceName, handle_control, nullptr);
  if (status_handle == nullptr) return;
  report(ServiceMoment::Registered);
  run_until_stopped();
  report(ServiceMoment::LoopEnded);
}

}  // namespace

bool run_service_dispatcher() {
  std::wstring name = kServiceName;
  const SERVICE_TABLE_ENTRYW table[] = {{name.data(), service_main}, {nullptr, nullptr}};
  return StartServiceCtrlDispatcherW(table) != FALSE;
}

}  // namespace vlk::agent
