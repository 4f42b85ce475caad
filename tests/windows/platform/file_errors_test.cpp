// The error mode of the agent's threads: file calls show no message boxes, and neither the process's mode nor
// that of started programs changes.
#include "platform/threads/file_errors.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <cwchar>
#include <functional>
#include <future>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "client/agent_client.h"
#include "platform/threads/detached_thread.h"
#include "platform/threads/start_thread.h"
#include "platform/win32/handles_win32.h"
#include "stream/streamer.h"
#include "transfer/file_transfer.h"
#include "update/update_threads.h"

namespace vlk::agent {
namespace {

constexpr DWORD kNoBoxes = SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX;
constexpr wchar_t kReportSwitch[] = L"--report-error-mode";

// With the switch, this program exits with its error mode before any test runs.
[[maybe_unused]] const bool reported = [] {
  if (std::wcsstr(GetCommandLineW(), kReportSwitch) != nullptr) ExitProcess(GetErrorMode());
  return false;
}();

DWORD error_mode_of_started_program() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring line = L'"' + std::wstring(path) + L"\" " + kReportSwitch;
  STARTUPINFOW startup = {};
  startup.cb = sizeof startup;
  PROCESS_INFORMATION started = {};
  EXPECT_TRUE(
      CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup, &started));
  const UniqueKernelHandle process(started.hProcess), thread(started.hThread);
  WaitForSingleObject(process.get(), INFINITE);
  DWORD mode = ~0u;
  GetExitCodeProcess(process.get(), &mode);
  return mode;
}

// The first error mode of a thread that reports it, also more than once, from one of its callbacks.
class ReportedMode {
 public:
  void report() {
    if (!reported_.exchange(true)) mode_.set_value(GetThreadErrorMode());
  }
  DWORD get() {
    std::future<DWORD> mode = mode_.get_future();
    if (mode.wait_for(std::chrono::seconds(60)) == std::future_status::ready) return mode.get();
    ADD_FAILURE() << "the thread reports nothing";
    return 0;
  }

 private:
  std::promise<DWORD> mode_;
  std::atomic<bool> reported_{false};
};

TEST(FileErrors, OnlyTheCallingThreadShowsNoBoxes) {
  // The test framework's own mode for the process contains the flags; this one does not.
  constexpr UINT process = SEM_NOGPFAULTERRORBOX;
  SetErrorMode(process);
  const DWORD child_before = error_mode_of_started_program();
  DWORD other = ~0u, own = 0, child = ~0u;
  std::thread([&] {
    disable_file_error_boxes();
    own = GetThreadErrorMode();
    child = error_mode_of_started_program();
    std::thread([&] { other = GetThreadErrorMode(); }).join();
  }).join();
  EXPECT_EQ(own, kNoBoxes);
  EXPECT_EQ(other & kNoBoxes, 0u);
  EXPECT_EQ(GetErrorMode(), process);
  EXPECT_EQ(child, child_before);
}

TEST(FileErrors, StartedThreadsShowNoBoxes) {
  ReportedMode joined, detached;
  start_thread([&] { joined.report(); }).join();
  EXPECT_EQ(joined.get(), kNoBoxes);
  start_detached_thread([&] { detached.report(); });
  EXPECT_EQ(detached.get(), kNoBoxes);
}

TEST(FileErrors, ConnectionThreadShowsNoBoxes) {
  ReportedMode mode;
  AgentConfig config;
  config.server_host = "127.0.0.1";
  config.server_port = 9;
  AgentCallbacks callbacks;
  callbacks.on_status = [&](Status, int) { mode.report(); };
  AgentClient client(config, callbacks);
  client.start();
  EXPECT_EQ(mode.get(), kNoBoxes);
}

TEST(FileErrors, StreamingThreadShowsNoBoxes) {
  ReportedMode mode;
  ScreenStreamer streamer(1, [&](Msg, unsigned int, const unsigned char*, std::size_t, unsigned char) {
    mode.report();
    return true;
  });
  streamer.Start(0, 15, 70, 1000000);
  EXPECT_EQ(mode.get(), kNoBoxes);
}

TEST(FileErrors, DownloadThreadShowsNoBoxes) {
  ReportedMode mode;
  StartDownload(1, 1, "C:\\no\\such\\file",
                [&](Msg, unsigned int, const unsigned char*, std::size_t, unsigned char) {
                  mode.report();
                  return true;
                });
  EXPECT_EQ(mode.get(), kNoBoxes);
}

TEST(FileErrors, UpdateThreadShowsNoBoxes) {
  ReportedMode mode, failed;
  int texts = 0;
  start_update_download("127.0.0.1", 9, "Setup.exe",
                        {.on_status =
                             [&](const std::wstring&) {
                               mode.report();
                               if (++texts == 2)
                                 failed.report();  // the thread uses nothing of the test afterwards
                             },
                         .on_installer_started = [] {}});
  EXPECT_EQ(mode.get(), kNoBoxes);
  EXPECT_EQ(failed.get(), kNoBoxes);
}

}  // namespace
}  // namespace vlk::agent
