// The order of the window's set-up and of its end, by the system calls of both.
#include "shell/main_window.h"
#include "tests/windows/shell/shell_calls_seam.h"
#include "tests/windows/support/shell_window.h"

namespace vlk::agent {
namespace {

using test::Lines;
using test::shell_script;
using WindowCalls = test::ShellCallsTest;

// The recorded calls, with one word for the creation of a control.
Lines in_order() {
  Lines lines;
  for (const std::string& call : shell_script.calls)
    lines.push_back(call.starts_with("0 ") ? "control" : call);
  return lines;
}

TEST_F(WindowCalls, SetUpEndsWithTheClientTheClipboardTheTrayIconAndTheUpdateCheck) {
  const ShellWindow shell;
  EXPECT_EQ(in_order(), (Lines{"SetWindowLongPtr -21", "FindResource 101 10", "control", "control", "control",
                               "control", "control", "thread", "AddClipboardFormatListener", "LoadIcon 1 100",
                               "Shell_NotifyIcon 0", "Shell_NotifyIcon 1", "thread"}));
}

TEST_F(WindowCalls, EndRemovesTheTrayIconThenWaitsForTheClientAndThenEndsTheMessageLoop) {
  const ShellWindow shell;
  ASSERT_EQ(shell_script.threads.size(), 2u);
  const HANDLE connection_thread = shell_script.threads.front().get();
  Lines seen;
  shell_script.on_call = [&](const std::string& call) {
    const bool running = WaitForSingleObject(connection_thread, 0) == WAIT_TIMEOUT;
    seen.push_back(call + (running ? " while the client runs" : ""));
  };
  DestroyWindow(shell.window);
  shell_script.on_call = nullptr;
  EXPECT_EQ(seen, (Lines{"Shell_NotifyIcon 2 while the client runs", "PostQuitMessage 0"}));
}

}  // namespace
}  // namespace vlk::agent
