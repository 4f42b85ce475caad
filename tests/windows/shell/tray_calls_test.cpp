// The system calls of the tray icon and its menu, with every argument, in both languages.
#include <cstring>
#include <cwchar>

#include "shell/tray.h"
#include "tests/windows/shell/shell_calls_seam.h"
#include "tests/windows/support/shell_window.h"

namespace vlk::agent {
namespace {

using test::Lines;
using test::shell_script;
using TrayCalls = test::ShellCallsTest;

TEST_F(TrayCalls, IconIsAddedWithTheTitleAndShowsOfflineBeforeAnyStatus) {
  for (const LANGID user : {test::kEnglish, test::kIcelandic}) {
    shell_script.language = user;
    forget();
    const ShellWindow shell;
    ASSERT_GE(shell_script.icons.size(), 2u);
    EXPECT_EQ(calls_with("Shell"), (Lines{"Shell_NotifyIcon 0", "Shell_NotifyIcon 1"}));
    NOTIFYICONDATAW expected = {};
    expected.cbSize = 976;
    expected.hWnd = shell.window;
    expected.uID = 1;
    expected.uFlags = 7;
    expected.uCallbackMessage = 32771;
    expected.hIcon = LoadIconW(nullptr, IDI_APPLICATION);
    std::wcscpy(expected.szTip, user == test::kEnglish ? L"Maravek Remote Support" : L"Maravek Fjaraðstoð");
    EXPECT_EQ(std::memcmp(&shell_script.icons[0], &expected, sizeof expected), 0)
        << test::narrow(shell_script.icons[0].szTip);
    EXPECT_EQ(test::narrow(shell_script.icons[1].szTip), "Maravek Remote Support - Offline");
    EXPECT_EQ(shell_script.icons[1].uFlags, 7u);
  }
}

TEST_F(TrayCalls, IconIsTheProgramsIconResourceIfThereIsOne) {
  shell_script.icon_resource = true;
  const ShellWindow shell;
  EXPECT_EQ(calls_with("LoadIcon"), (Lines{"LoadIcon 1 100"}));
  EXPECT_EQ(shell_script.icons.at(0).hIcon, test::own_icon);
}

TEST_F(TrayCalls, EachStatusUpdatesTheTooltip) {
  shell_script.language = test::kIcelandic;
  ShellWindow shell;
  shell.stop_client();
  const struct {
    int status, count;
    const char* tip;
  } rows[] = {{1, 0, "Maravek Remote Support - Connecting…"},
              {2, 4, "Maravek Remote Support - Online"},
              {3, 3, "Maravek Remote Support - Reps connected: 3"},
              {3, 0, "Maravek Remote Support - Reps connected: 1"},
              {99, 3, "Maravek Remote Support - Offline"},
              {0, 0, "Maravek Remote Support - Offline"}};
  for (const auto& row : rows) {
    forget();
    SendMessageW(shell.window, WM_AGENT_STATUS, static_cast<WPARAM>(row.status), row.count);
    EXPECT_EQ(shell_script.calls, (Lines{"Shell_NotifyIcon 1"}));
    EXPECT_EQ(tip(), row.tip);
  }
}

TEST_F(TrayCalls, IconIsRemovedWithTheWindow) {
  ShellWindow shell;
  forget();
  DestroyWindow(shell.window);
  EXPECT_EQ(calls_with("Shell"), (Lines{"Shell_NotifyIcon 2"}));
  EXPECT_EQ(shell_script.icons.at(0).uID, 1u);
}

TEST_F(TrayCalls, MenuIsCreatedShownAndDestroyed) {
  ShellWindow shell;
  shell.stop_client();
  forget();
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_RBUTTONUP);
  EXPECT_EQ(shell_script.calls,
            (Lines{"CreatePopupMenu", "AppendMenu 1 0 40001 Open", "AppendMenu 1 0 40002 Unattended access",
                   "AppendMenu 1 800 0 (none)", "AppendMenu 1 0 40003 Exit", "SetForegroundWindow",
                   "TrackPopupMenu 1 2 321 123 0 1 0", "DestroyMenu"}));
  shell_script.language = test::kIcelandic;
  shell.main.unattended = true;
  forget();
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_RBUTTONUP);
  EXPECT_EQ(calls_with("Append"),
            (Lines{"AppendMenu 1 0 40001 Opna", "AppendMenu 1 8 40002 Fjaraðstoð án eftirlits",
                   "AppendMenu 1 800 0 (none)", "AppendMenu 1 0 40003 Hætta"}));
}

TEST_F(TrayCalls, OnlyADoubleClickAndTheReleaseOfTheRightButtonHaveAnEffect) {
  ShellWindow shell;
  shell.stop_client();
  forget();
  for (LPARAM message = WM_MOUSEFIRST; message <= WM_MOUSELAST; ++message) {
    if (message == WM_LBUTTONDBLCLK || message == WM_RBUTTONUP) continue;
    EXPECT_EQ(SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, message), 0);
  }
  EXPECT_EQ(shell_script.calls, Lines{});
  SendMessageW(shell.window, WM_TRAY_NOTIFY, 1, WM_LBUTTONDBLCLK);
  EXPECT_EQ(shell_script.calls, (Lines{"ShowWindow 5", "ShowWindow 9", "SetForegroundWindow"}));
}

}  // namespace
}  // namespace vlk::agent
