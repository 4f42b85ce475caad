// Installs and removes the service, and checks the permission for it.
#include <memory>
#include <string>

#include "platform/own_path.h"
#include "platform/win32/handles_win32.h"
#include "system/service.h"
#include "system/service_names_win32.h"

namespace vlk::agent {
namespace {

UniqueServiceHandle create_or_open_service(SC_HANDLE manager) {
  const std::wstring command = quoted_own_path() + L" --service";
  UniqueServiceHandle service(CreateServiceW(manager, kServiceName, kServiceDisplayName, SERVICE_ALL_ACCESS,
                                             SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
                                             SERVICE_ERROR_NORMAL, command.c_str(), nullptr, nullptr, nullptr,
                                             nullptr, nullptr));
  // An existing service keeps its path, even if this executable is elsewhere.
  if (!service && GetLastError() == ERROR_SERVICE_EXISTS) {
    service.reset(OpenServiceW(manager, kServiceName, SERVICE_ALL_ACCESS));
  }
  return service;
}

}  // namespace

bool install_service() {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CREATE_SERVICE));
  if (!manager) return false;
  const UniqueServiceHandle service = create_or_open_service(manager.get());
  if (!service) return false;
  StartServiceW(service.get(), 0, nullptr);  // a service that does not start still counts as installed
  return true;
}

bool uninstall_service() {
  const UniqueServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
  if (!manager) return false;
  const UniqueServiceHandle service(OpenServiceW(manager.get(), kServiceName, SERVICE_ALL_ACCESS));
  if (!service) return false;
  SERVICE_STATUS status;
  ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
  return DeleteService(service.get()) != FALSE;
}

bool is_administrator() {
  SID_IDENTIFIER_AUTHORITY authority = {SECURITY_NT_AUTHORITY};
  PSID allocated = nullptr;
  if (!AllocateAndInitializeSid(&authority, 2, SECURITY_BUILTIN_DOMAIN_RID, DOMAIN_ALIAS_RID_ADMINS, 0, 0, 0,
                                0, 0, 0, &allocated)) {
    return false;
  }
  const UniqueHandle<PSID, FreeSid> administrators(allocated);
  BOOL member = FALSE;
  CheckTokenMembership(nullptr, administrators.get(), &member);
  return member != FALSE;
}

}  // namespace vlk::agent
