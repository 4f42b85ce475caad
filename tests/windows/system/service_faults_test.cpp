// The service's set-up and its run with each call of the service manager and of the system failing in turn.
#include <windows.h>

#include <map>
#include <string>

#include "system/service.h"
#include "tests/windows/support/counted_calls.h"
#include "tests/windows/system/service_seam.h"

VLK_COUNTED("kernel32.dll", GetModuleFileNameW, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", CreateEventW, 0, ERROR_NOT_ENOUGH_MEMORY)
VLK_COUNTED("kernel32.dll", SetEvent, FALSE, ERROR_INVALID_HANDLE)

namespace vlk::agent {
namespace {

using test::script;

class ServiceFaults : public test::ServiceTest {
 protected:
  static void expect_effects(const std::function<void()>& prepare, const std::function<bool()>& work,
                             const std::function<std::string()>& outcome, const std::string& usual,
                             const test::Effects& effects, int calls) {
    bool result = false;
    const auto reset = [&] {
      script = test::ServiceScript();
      prepare();
    };
    const int failures = test::expect_effects({
        .prepare = reset,
        .work = [&] { result = work(); },
        .result = [&] { return (result ? "true" : "false") + outcome(); },
        .usual = usual,
        .effects = effects,
        .check = [](const std::string&) { EXPECT_EQ(script.open_handles, 0); },
    });
    EXPECT_EQ(failures, calls);
  }

  // The recorded calls that the words name, in order.
  static std::string recorded(const std::map<std::string, std::string>& words) {
    std::string text;
    for (const std::string& call : script.calls) {
      for (const auto& [begin, word] : words)
        if (call.starts_with(begin)) text += ", " + word;
    }
    return text;
  }

  static std::string set_up() {
    return recorded({{"StartService", "started"}, {"DeleteService", "deleted"}, {"no path", "no path"}});
  }
};

TEST_F(ServiceFaults, InstallationFailsIfTheServiceCannotBeCreated) {
  expect_effects([] {}, install_service, set_up, "true, started",
                 {{"OpenSCManager 1", "false"},
                  {"CreateService 1", "false"},
                  {"GetModuleFileNameW 1", "true, no path, started"}},
                 4);
}

TEST_F(ServiceFaults, InstallationOfAnExistingServiceFailsIfItCannotBeOpened) {
  const auto exists = [] {
    script.failing = {"CreateService"};
    script.create_error = ERROR_SERVICE_EXISTS;
  };
  expect_effects(exists, install_service, set_up, "true, started",
                 {{"OpenSCManager 1", "false"},
                  {"OpenService 1", "false"},
                  {"GetModuleFileNameW 1", "true, no path, started"}},
                 4);
}

TEST_F(ServiceFaults, RemovalFailsOnlyIfTheServiceCannotBeOpenedOrDeleted) {
  expect_effects(
      [] {}, uninstall_service, set_up, "true, deleted",
      {{"OpenSCManager 1", "false"}, {"OpenService 1", "false"}, {"DeleteService 1", "false, deleted"}}, 4);
}

TEST_F(ServiceFaults, TokenThatCannotBeCheckedIsNotAnAdministrators) {
  expect_effects([] {}, is_administrator, [] { return ""; }, "true",
                 {{"Sid 1", "false"}, {"Member 1", "false"}}, 2);
}

// A service whose console goes to session 2 at the first wait, and which is told to stop at each later wait.
class ServiceRunFaults : public ServiceFaults {
 protected:
  struct Endless {};
  static constexpr int kManyWaits = 50;

  // The first exception of a process opens handles that stay.
  static void SetUpTestSuite() {
    try {
      throw Endless();
    } catch (const Endless&) {
    }
  }

  static void prepare() {
    waits_ = 0;
    script.waits_end_at_once = true;
    script.on_wait = [](DWORD, DWORD) {
      if (++waits_ == kManyWaits) throw Endless();
      if (waits_ == 1) {
        script.session = 2;
      } else {
        script.handler(SERVICE_CONTROL_STOP, 0, nullptr, nullptr);
      }
    };
  }

  // True also for a service that does not stop; outcome() shows that it did not.
  static bool run() {
    try {
      return run_service_dispatcher();
    } catch (const Endless&) {
      return true;
    }
  }

  static std::string outcome() {
    return recorded({{"QueryUserToken 1", "user 1"},
                     {"QueryUserToken 2", "user 2"},
                     {"CreateProcess primary 420 null", "no environment"},
                     {"no path", "no path"},
                     {"Close thread", "start"},
                     {"Terminate process", "end"},
                     {"Status 1 ", "stopped"}});
  }

  inline static int waits_ = 0;
};

TEST_F(ServiceRunFaults, KnownServiceWithoutAStopEventNeverEndsAndSurvivesAnyOtherFailure) {
  const std::string usual = "true, user 1, start, end, user 2, start, end, stopped";
  const std::string no_first = "true, user 1, user 2, start, end, stopped";
  const std::string no_second = "true, user 1, start, end, user 2, stopped";
  expect_effects(
      prepare, run, outcome, usual,
      {{"Dispatch 1", "false"},
       {"Register 1", "true"},
       {"CreateEventW 1", "true, user 1, start, end, user 2, start"},
       {"Session 2", "true, user 2, start, end, stopped"},
       {"Session 4", "true, user 1, start, end, stopped"},
       {"QueryUserToken 1", no_first},
       {"DuplicateToken 1", no_first},
       {"CreateProcess 1", no_first},
       {"QueryUserToken 2", no_second},
       {"DuplicateToken 2", no_second},
       {"CreateProcess 2", no_second},
       {"CreateEnvironment 1", "true, user 1, no environment, start, end, user 2, start, end, stopped"},
       {"CreateEnvironment 2", "true, user 1, start, end, user 2, no environment, start, end, stopped"},
       {"GetModuleFileNameW 1", "true, user 1, no path, start, end, user 2, start, end, stopped"},
       {"GetModuleFileNameW 2", "true, user 1, start, end, user 2, no path, start, end, stopped"}},
      26);
}

}  // namespace
}  // namespace vlk::agent
