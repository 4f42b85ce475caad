// Installing and removing the service, and the check for an administrator, against a scripted service
// manager.
#include "system/service.h"
#include "tests/windows/system/service_seam.h"

namespace vlk::agent {
namespace {

using test::Lines;
using test::script;

using ServiceSetup = test::ServiceTest;

const std::string kCreate = "CreateService manager|VantelinkAgent|Maravek Remote Support|f01ff 10 2 1";

TEST_F(ServiceSetup, InstallationRegistersThisExecutableAndStartsTheService) {
  EXPECT_TRUE(install_service());
  EXPECT_EQ(script.calls, (Lines{"OpenSCManager 2", kCreate, "StartService service",
                                 "CloseServiceHandle service", "CloseServiceHandle manager"}));
}

TEST_F(ServiceSetup, InstallingAnExistingServiceStartsIt) {
  script.failing = {"CreateService"};
  script.create_error = ERROR_SERVICE_EXISTS;
  EXPECT_TRUE(install_service());
  EXPECT_EQ(script.calls,
            (Lines{"OpenSCManager 2", kCreate, "OpenService manager VantelinkAgent f01ff",
                   "StartService service", "CloseServiceHandle service", "CloseServiceHandle manager"}));
}

TEST_F(ServiceSetup, InstallationSucceedsEvenIfTheServiceDoesNotStart) {
  script.failing = {"StartService"};
  EXPECT_TRUE(install_service());
}

TEST_F(ServiceSetup, InstallationFailsIfTheServiceManagerOrTheServiceCannotBeOpened) {
  script.failing = {"OpenSCManager"};
  EXPECT_FALSE(install_service());
  EXPECT_EQ(script.calls, (Lines{"OpenSCManager 2"}));
  script = test::ServiceScript();
  script.failing = {"CreateService", "OpenService"};
  EXPECT_FALSE(install_service());
  EXPECT_EQ(script.calls, (Lines{"OpenSCManager 2", kCreate, "CloseServiceHandle manager"}))
      << "the service is opened only if it exists already";
  script.calls.clear();
  script.create_error = ERROR_SERVICE_EXISTS;
  EXPECT_FALSE(install_service());
}

TEST_F(ServiceSetup, RemovalStopsAndDeletesTheService) {
  for (const bool stops : {true, false}) {
    script = test::ServiceScript();
    if (!stops) script.failing = {"ControlService"};
    EXPECT_TRUE(uninstall_service());
    EXPECT_EQ(script.calls, (Lines{"OpenSCManager f003f", "OpenService manager VantelinkAgent f01ff",
                                   "ControlService service 1", "DeleteService service",
                                   "CloseServiceHandle service", "CloseServiceHandle manager"}));
  }
}

TEST_F(ServiceSetup, RemovalFailsIfTheManagerOrTheServiceCannotBeOpenedOrDeletionIsRefused) {
  for (const char* const step : {"OpenSCManager", "OpenService", "DeleteService"}) {
    script.failing = {step};
    EXPECT_FALSE(uninstall_service()) << step;
  }
}

TEST_F(ServiceSetup, EffectiveTokenDecidesWhetherTheUserIsAnAdministrator) {
  EXPECT_TRUE(is_administrator());
  EXPECT_EQ(script.calls, (Lines{"Sid 5 2 32 544", "Member null service", "FreeSid service"}));
  script.member = false;
  EXPECT_FALSE(is_administrator());
  script.member = true;
  script.failing = {"Member"};
  EXPECT_FALSE(is_administrator());
  script.failing = {"Sid"};
  script.calls.clear();
  EXPECT_FALSE(is_administrator());
  EXPECT_EQ(script.calls, (Lines{"Sid 5 2 32 544"}));
}

}  // namespace
}  // namespace vlk::agent
