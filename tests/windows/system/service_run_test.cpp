// The running service: the states it reports, and the agent it launches into the console session.
#include <algorithm>
#include <chrono>
#include <thread>

#include "system/service.h"
#include "tests/windows/system/service_seam.h"

namespace vlk::agent {
namespace {

using test::Lines;
using test::script;

class ServiceRun : public test::ServiceTest {
 protected:
  // The calls that launch and end the agent when the service is stopped as soon as it runs.
  static Lines launch_calls() {
    script.controls = {SERVICE_CONTROL_STOP};
    EXPECT_TRUE(run_service_dispatcher());
    Lines launch;
    for (const std::string& call : script.calls) {
      const bool of_service =
          call.starts_with("Dispatch") || call.starts_with("Register") || call.starts_with("Status");
      if (!of_service) launch.push_back(call);
    }
    return launch;
  }
};

TEST_F(ServiceRun, ReportsEachStateAndEndsTheAgentWhenStopped) {
  script.controls = {SERVICE_CONTROL_INTERROGATE, SERVICE_CONTROL_PAUSE, SERVICE_CONTROL_STOP};
  const DWORD first = test::last_check_point + 1;
  EXPECT_TRUE(run_service_dispatcher());
  EXPECT_EQ(script.calls,
            (Lines{"Dispatch VantelinkAgent", "Register VantelinkAgent",
                   "Status 2 0 " + std::to_string(first) + " 3000", "Status 4 1 0 0",
                   "Status 3 1 " + std::to_string(first + 1) + " 3000", "QueryUserToken 1",
                   "DuplicateToken queried 2000000 1 1", "Close queried", "CreateEnvironment primary",
                   "CreateProcess primary 420 block winsta0\\default", "DestroyEnvironment", "Close primary",
                   "Close thread", "Terminate process 0", "Close process", "Status 1 1 0 0"}));
}

TEST_F(ServiceRun, FileErrorsOfItsThreadShowNoMessageBoxes) {
  SetThreadErrorMode(0, nullptr);
  launch_calls();  // the scripted dispatcher runs the service on the calling thread
  EXPECT_EQ(GetThreadErrorMode(), DWORD{SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX});
}

TEST_F(ServiceRun, EndsAtOnceIfItsHandlerCannotBeRegistered) {
  script.failing = {"Register"};
  run_service_dispatcher();
  EXPECT_EQ(script.calls, (Lines{"Dispatch VantelinkAgent", "Register VantelinkAgent"}));
}

TEST_F(ServiceRun, DispatcherFailsOutsideTheServiceManager) {
  script.failing = {"Dispatch"};
  EXPECT_FALSE(run_service_dispatcher());
}

TEST_F(ServiceRun, SystemShutdownStopsTheService) {
  script.controls = {SERVICE_CONTROL_SHUTDOWN};
  EXPECT_TRUE(run_service_dispatcher());
  EXPECT_EQ(script.calls.back(), "Status 1 1 0 0");
}

TEST_F(ServiceRun, StopsAtOnceWhileNobodyIsLoggedOn) {
  script.failing = {"QueryUserToken"};
  EXPECT_EQ(launch_calls(), (Lines{"QueryUserToken 1"}));
}

// The user of session 1 leaves the console to another session, which the service finds at its next poll.
class ServiceSessionSwitch : public ServiceRun {
 protected:
  static Lines calls_after_the_launch(bool user_in_new_session) {
    script.on_query = [=](DWORD session) {
      if (session == 1) {
        script.session = 2;
        return;
      }
      if (!user_in_new_session) script.failing = {"QueryUserToken"};
      script.handler(SERVICE_CONTROL_STOP, 0, nullptr, nullptr);
    };
    EXPECT_TRUE(run_service_dispatcher());
    const auto first = std::ranges::find(script.calls, "Close thread");
    EXPECT_NE(first, script.calls.end());
    Lines later(first, script.calls.end());
    std::erase_if(later, [](const std::string& call) { return call.starts_with("Status"); });
    return later;
  }
};

TEST_F(ServiceSessionSwitch, EndsTheAgentAndLaunchesOneForTheOtherUser) {
  EXPECT_EQ(calls_after_the_launch(true),
            (Lines{"Close thread", "Terminate process 0", "Close process", "QueryUserToken 2",
                   "DuplicateToken queried 2000000 1 1", "Close queried", "CreateEnvironment primary",
                   "CreateProcess primary 420 block winsta0\\default", "DestroyEnvironment", "Close primary",
                   "Close thread", "Terminate process 0", "Close process"}));
}

TEST_F(ServiceSessionSwitch, EndsTheAgentAlsoWhenNobodyIsLoggedOnInTheOtherSession) {
  EXPECT_EQ(calls_after_the_launch(false),
            (Lines{"Close thread", "Terminate process 0", "Close process", "QueryUserToken 2"}));
}

TEST_F(ServiceRun, StopDuringTheWaitForAUserEndsTheServiceBeforeItsNextPoll) {
  script.failing = {"QueryUserToken"};
  // The handler runs on another thread, as in a real service, while the service waits for five seconds.
  std::thread dispatcher;
  std::chrono::steady_clock::time_point begin;
  script.on_wait = [&](DWORD handles, DWORD milliseconds) {
    EXPECT_EQ(handles, 1u);
    EXPECT_EQ(milliseconds, 5000u);
    ASSERT_FALSE(dispatcher.joinable()) << "the service waits again after the stop";
    begin = std::chrono::steady_clock::now();
    dispatcher = std::thread([] { script.handler(SERVICE_CONTROL_STOP, 0, nullptr, nullptr); });
  };
  EXPECT_TRUE(run_service_dispatcher());
  const auto time = std::chrono::steady_clock::now() - begin;
  dispatcher.join();
  EXPECT_LT(time, std::chrono::seconds(4)) << "the wait of five seconds was not interrupted";
  EXPECT_EQ(script.calls.back(), "Status 1 1 0 0");
}

TEST_F(ServiceRun, LaunchesNoAgentWithoutAConsoleSession) {
  script.session = 0xFFFFFFFF;
  EXPECT_EQ(launch_calls(), Lines());
}

TEST_F(ServiceRun, LaunchesNoAgentWithoutAPrimaryToken) {
  script.failing = {"DuplicateToken"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried"}));
}

TEST_F(ServiceRun, LaunchesTheAgentWithoutAnEnvironmentBlockIfNoneCanBeCreated) {
  script.failing = {"CreateEnvironment"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried",
                   "CreateEnvironment primary", "CreateProcess primary 420 null winsta0\\default",
                   "Close primary", "Close thread", "Terminate process 0", "Close process"}));
}

TEST_F(ServiceRun, FailedLaunchLeavesNothingOpen) {
  script.failing = {"CreateProcess"};
  EXPECT_EQ(launch_calls(),
            (Lines{"QueryUserToken 1", "DuplicateToken queried 2000000 1 1", "Close queried",
                   "CreateEnvironment primary", "CreateProcess primary 420 block winsta0\\default",
                   "DestroyEnvironment", "Close primary"}));
}

}  // namespace
}  // namespace vlk::agent
