// The system calls of the settings panel, with every argument, in both languages.
#include <windows.h>
#include <commctrl.h>

#include "shell/panel/settings_panel.h"
#include "tests/windows/shell/shell_calls_seam.h"
#include "tests/windows/support/shell_window.h"

namespace vlk::agent {
namespace {

using test::Lines;
using test::shell_script;
using PanelCalls = test::ShellCallsTest;

TEST_F(PanelCalls, ControlsAreCreatedInOrderWithTheirStyles) {
  AgentConfig config;
  config.display_name = "Ægir";
  config.unattended = true;
  const ShellWindow shell(config);
  EXPECT_EQ(calls_with("0 "), (Lines{
                                  "0 STATIC Vessel name: 50000000 24 130 312 18 0 1 0",
                                  "0 EDIT Ægir 50800080 24 152 312 26 1001 1 0",
                                  "0 BUTTON Enable unattended access 50000003 24 192 312 22 1002 1 0",
                                  "0 BUTTON Apply 50000001 24 224 100 30 1003 1 0",
                                  "0 STATIC Connecting… 50000000 24 268 312 36 1004 1 0",
                              }));
  EXPECT_EQ(SendMessageW(shell.main.unattended_check, BM_GETCHECK, 0, 0), BST_CHECKED);
}

TEST_F(PanelCalls, AllControlsExceptTheNameLabelHaveTheGuiFont) {
  const ShellWindow shell;
  const auto font = reinterpret_cast<LRESULT>(GetStockObject(DEFAULT_GUI_FONT));
  for (const WORD id : {kNameEdit, kUnattendedCheck, kApplyButton, kStatusLabel})
    EXPECT_EQ(SendMessageW(GetDlgItem(shell.window, id), WM_GETFONT, 0, 0), font) << id;
  const HWND label = FindWindowExW(shell.window, nullptr, L"STATIC", L"Vessel name:");
  ASSERT_NE(label, nullptr);
  EXPECT_EQ(SendMessageW(label, WM_GETFONT, 0, 0), 0) << "the label keeps the system font";
}

TEST_F(PanelCalls, PanelIsIcelandicForAnIcelandicUser) {
  shell_script.language = test::kIcelandic;
  const ShellWindow shell;
  EXPECT_EQ(calls_with("0 "), (Lines{
                                  "0 STATIC Skipsnafn/Skipsnúmer: 50000000 24 130 312 18 0 1 0",
                                  "0 EDIT  50800080 24 152 312 26 1001 1 0",
                                  "0 BUTTON Leyfa fjaraðstoð án eftirlits. 50000003 24 192 312 22 1002 1 0",
                                  "0 BUTTON Vista 50000001 24 224 100 30 1003 1 0",
                                  "0 STATIC Tengist… 50000000 24 268 312 36 1004 1 0",
                              }));
}

TEST_F(PanelCalls, ApplyButtonSavesTheNameBeforeTheUnattendedAccessSetting) {
  AgentConfig config;
  config.agent_id = "id";
  config.agent_secret = "secret";
  config.skipped_version = "0.2";
  ShellWindow shell(config);
  shell.stop_client();
  SetWindowTextW(shell.main.name_edit, L"Ægir");
  SendMessageW(shell.main.unattended_check, BM_SETCHECK, BST_CHECKED, 0);
  forget();
  SendMessageW(shell.window, WM_COMMAND, MAKEWPARAM(1003, BN_CLICKED),
               reinterpret_cast<LPARAM>(shell.main.apply_button));
  const Lines strings = {"create 1 settings 2", "set DisplayName \"Ægir\"", "set AgentId \"id\"",
                         "set AgentSecret \"secret\"", "set SkippedVersion \"0.2\""};
  Lines expected = strings;
  expected.insert(expected.end(), {"set Unattended 0", "create 1 Run 2", "set entry"});
  expected.insert(expected.end(), strings.begin(), strings.end());
  expected.insert(expected.end(), {"set Unattended 1", "Shell_NotifyIcon 1"});
  EXPECT_EQ(shell_script.calls, expected);
  EXPECT_EQ(shell.main.display_name, "Ægir");
  EXPECT_TRUE(shell.main.unattended) << "although every write failed";
}

TEST_F(PanelCalls, ApplyButtonSavesTwiceEvenIfNothingHasChanged) {
  AgentConfig config;
  config.display_name = "Ægir";
  ShellWindow shell(config);
  shell.stop_client();
  for (int i = 0; i < 2; ++i) {
    forget();
    SendMessageW(shell.window, WM_COMMAND, MAKEWPARAM(1003, BN_CLICKED),
                 reinterpret_cast<LPARAM>(shell.main.apply_button));
    const Lines saved = {"create 1 settings 2",  "set DisplayName \"Ægir\"", "set AgentId \"\"",
                         "set AgentSecret \"\"", "set SkippedVersion \"\"",  "set Unattended 0"};
    Lines expected = saved;
    expected.insert(expected.end(), saved.begin(), saved.end());
    expected.emplace_back("Shell_NotifyIcon 1");
    EXPECT_EQ(shell_script.calls, expected);
  }
}

TEST_F(PanelCalls, IndeterminateCheckBoxCountsAsUnchecked) {
  ShellWindow shell;
  shell.stop_client();
  SendMessageW(shell.main.unattended_check, BM_SETSTYLE, BS_AUTO3STATE, 0);
  SendMessageW(shell.main.unattended_check, BM_SETCHECK, BST_INDETERMINATE, 0);
  apply_settings(shell.main);
  EXPECT_FALSE(shell.main.unattended);
  EXPECT_EQ(SendMessageW(shell.main.unattended_check, BM_GETCHECK, 0, 0), BST_UNCHECKED);
}

}  // namespace
}  // namespace vlk::agent
