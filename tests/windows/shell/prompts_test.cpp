// The consent prompt and the update prompt: the system's dialogs are replaced, recorded and answered by the
// test.
#include <windows.h>
#include <commctrl.h>
#include <process.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "shell/prompts/consent_prompt.h"
#include "shell/prompts/update_prompt.h"
#include "tests/windows/support/seam.h"
#include "tests/windows/support/shell_window.h"
#include "update/manifest.h"

namespace {

using Lines = std::vector<std::string>;

Lines calls;
LANGID language = 0x0409;
bool hook_fails = false;
HOOKPROC hook = nullptr;
const HHOOK hook_handle = reinterpret_cast<HHOOK>(0x77);
std::function<int()> on_box;  // called while the box is shown; returns the user's answer
TASKDIALOGCONFIG shown = {};
std::wstring shown_content;
std::vector<std::pair<int, std::wstring>> shown_buttons;
HRESULT dialog_result = S_OK;
int dialog_button = 0;
HWND posted_to = nullptr;
int threads_begun = 0;  // number of threads that the tests' thread has started
const DWORD test_thread = GetCurrentThreadId();

std::string narrow(const wchar_t* text) {
  return text == nullptr ? "(none)" : vlk::WideToUtf8(text);
}

LANGID WINAPI user_language() {
  return language;
}

HHOOK WINAPI set_hook(int kind, HOOKPROC procedure, HINSTANCE module, DWORD thread) {
  calls.push_back("hook " + std::to_string(kind) + (module == nullptr ? "" : " module") +
                  (thread == GetCurrentThreadId() ? "" : " other thread"));
  hook = procedure;
  return hook_fails ? nullptr : hook_handle;
}

BOOL WINAPI unhook(HHOOK handle) {
  calls.push_back(handle == hook_handle ? "unhook" : "unhook another");
  return FALSE;
}

LRESULT WINAPI call_next(HHOOK, int code, WPARAM, LPARAM) {
  calls.push_back("next " + std::to_string(code));
  return 5;
}

int WINAPI message_box(HWND owner, LPCWSTR text, LPCWSTR title, UINT style) {
  calls.push_back("box " + std::to_string(style) + (owner == nullptr ? " unowned" : "") + " [" +
                  narrow(title) + "] " + narrow(text));
  const auto happens = on_box;  // a copy, because the call may replace on_box
  return happens();
}

HRESULT WINAPI task_dialog(const TASKDIALOGCONFIG* config, int* button, int* radio, BOOL* verified) {
  calls.push_back(radio == nullptr && verified == nullptr ? "dialog" : "dialog with more");
  shown = *config;
  shown_content = config->pszContent;
  shown_buttons.clear();
  for (UINT i = 0; i < config->cButtons; ++i)
    shown_buttons.emplace_back(config->pButtons[i].nButtonID, config->pButtons[i].pszButtonText);
  *button = dialog_button;
  return dialog_result;
}

BOOL WINAPI post(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  // Only a command closes a box; other threads post other messages.
  if (message == WM_COMMAND) {
    calls.push_back("post " + std::to_string(wparam) + ' ' + std::to_string(lparam));
    posted_to = window;
    return TRUE;
  }
  return vlk::test::real<decltype(post)>("user32.dll", "PostMessageW")(window, message, wparam, lparam);
}

std::uintptr_t begin_thread(void* security, unsigned stack, unsigned(__stdcall* start)(void*), void* argument,
                            unsigned flags, unsigned* id) {
  if (GetCurrentThreadId() == test_thread) ++threads_begun;
  static auto* const system = vlk::test::real<decltype(begin_thread)>("msvcrt.dll", "_beginthreadex");
  return system(security, stack, start, argument, flags, id);
}

}  // namespace

extern "C" {
void* __imp__beginthreadex = reinterpret_cast<void*>(begin_thread);
void* __imp_GetUserDefaultUILanguage = reinterpret_cast<void*>(user_language);
void* __imp_SetWindowsHookExW = reinterpret_cast<void*>(set_hook);
void* __imp_UnhookWindowsHookEx = reinterpret_cast<void*>(unhook);
void* __imp_CallNextHookEx = reinterpret_cast<void*>(call_next);
void* __imp_MessageBoxW = reinterpret_cast<void*>(message_box);
void* __imp_TaskDialogIndirect = reinterpret_cast<void*>(task_dialog);
void* __imp_PostMessageW = reinterpret_cast<void*>(post);
}

namespace vlk::agent {
namespace {

constexpr char kEnglishBox[] =
    "box 4132 [Maravek Remote Support] Jón from Maravek is requesting to connect to your computer.\n\n"
    "Allow this remote support session?";
const HWND box = reinterpret_cast<HWND>(0x4711);

class Prompts : public testing::Test {
 protected:
  Prompts() {
    language = 0x0409;
    hook_fails = false;
    on_box = [] { return IDNO; };
    dialog_result = S_OK;
    dialog_button = 0;
    shell_.stop_client();
    calls.clear();
  }
  void request(std::uint32_t session, const std::string& name) {
    {
      const MutexLock lock(shell_.main.pending_lock);
      shell_.main.pending_session = session;
      shell_.main.pending_rep_name = name;
    }
    run_consent_prompt(shell_.main);
  }
  static void activate(HWND window) {
    EXPECT_EQ(hook(HCBT_ACTIVATE, reinterpret_cast<WPARAM>(window), 0), 5) << "the next hook's result";
  }

  ShellWindow shell_;
};

TEST_F(Prompts, ConsentBoxIsShownWhileItsHookIsSet) {
  request(7, "Jón");
  EXPECT_EQ(calls, (Lines{"hook 5", kEnglishBox, "unhook"}));
  language = 0x040F;
  calls.clear();
  request(7, "A representative");
  EXPECT_EQ(calls.at(1),
            "box 4132 [Maravek Fjaraðstoð] A representative frá Maravek óskar eftir að tengjast tölvunni "
            "þinni.\n\nLeyfa þessa fjaraðstoð?");
}

TEST_F(Prompts, ConsentBoxIsShownEvenIfItsHookCannotBeSet) {
  hook_fails = true;
  request(7, "Jón");
  EXPECT_EQ(calls, (Lines{"hook 5", kEnglishBox}));
}

TEST_F(Prompts, OnlyTheEndOfItsSessionClosesAConsentBoxAndOnlyAfterTheBoxIsActivated) {
  on_box = [] {
    cancel_consent_prompt(7);  // the box is not activated yet
    hook(HCBT_CREATEWND, 1, 0);
    cancel_consent_prompt(7);  // creating a window does not activate it
    activate(box);
    cancel_consent_prompt(8);
    cancel_consent_prompt(0);
    calls.push_back("now");
    cancel_consent_prompt(7);
    return IDNO;
  };
  request(7, "Jón");
  EXPECT_EQ(calls, (Lines{"hook 5", kEnglishBox, "next 3", "next 5", "now", "post 7 0", "unhook"}));
  EXPECT_EQ(posted_to, box);
  calls.clear();
  cancel_consent_prompt(7);
  cancel_consent_prompt(0);
  EXPECT_EQ(calls, Lines{}) << "no box is shown";
}

TEST_F(Prompts, FirstConsentBoxCannotBeClosedAfterASecondBoxWasShown) {
  on_box = [this] {
    activate(box);
    on_box = [] {
      activate(reinterpret_cast<HWND>(0x4712));
      cancel_consent_prompt(7);  // 7 is not the session of the box shown now
      return IDNO;
    };
    request(8, "Gunna");
    calls.push_back("back");
    cancel_consent_prompt(7);
    cancel_consent_prompt(8);
    return IDNO;
  };
  request(7, "Jón");
  EXPECT_EQ(std::count(calls.begin(), calls.end(), "post 7 0"), 0);
  EXPECT_EQ(calls.back(), "unhook");
}

TEST_F(Prompts, TwoRequestsBeforeTheFirstBoxShowTwoBoxesForTheSecondRequest) {
  int boxes = 0;
  on_box = [&] {
    activate(box);
    // The box's own message loop handles the second request's message.
    if (++boxes == 1) test::pump_messages();
    cancel_consent_prompt(7);
    return IDNO;
  };
  for (const std::uint32_t session : {7u, 8u}) {
    const MutexLock lock(shell_.main.pending_lock);
    shell_.main.pending_session = session;
    shell_.main.pending_rep_name = session == 7 ? "Jón" : "Gunna";
    PostMessageW(shell_.window, WM_CONSENT_REQUEST, 0, 0);
  }
  test::pump_messages();
  const std::string second =
      "box 4132 [Maravek Remote Support] Gunna from Maravek is requesting to connect to your computer.\n\n"
      "Allow this remote support session?";
  EXPECT_EQ(calls, (Lines{"hook 5", second, "next 5", "hook 5", second, "next 5", "unhook", "unhook"}))
      << "the first request is lost, and no box belongs to its session";
}

TEST_F(Prompts, UpdateDialogIsShownWithTheExpectedSettings) {
  run_update_prompt(shell_.main, {"0.2-β", "Setup.exe"});
  EXPECT_EQ(calls, (Lines{"dialog"}));
  TASKDIALOGCONFIG expected = {};
  expected.cbSize = 160;
  expected.hwndParent = shell_.window;
  expected.dwFlags = 0x1008;
  expected.pszMainIcon = MAKEINTRESOURCEW(65533);
  expected.cButtons = 3;
  // The texts are compared below.
  expected.pszWindowTitle = shown.pszWindowTitle;
  expected.pszMainInstruction = shown.pszMainInstruction;
  expected.pszContent = shown.pszContent;
  expected.pButtons = shown.pButtons;
  EXPECT_EQ(std::memcmp(&shown, &expected, sizeof expected), 0);
  EXPECT_EQ(narrow(shown.pszWindowTitle), "Maravek Remote Support");
  EXPECT_EQ(narrow(shown.pszMainInstruction), "Update available");
  EXPECT_EQ(narrow(shown_content.c_str()),
            "A newer version of Maravek Remote Support is available.  (0.2-β)");
  using Buttons = std::vector<std::pair<int, std::wstring>>;
  EXPECT_EQ(shown_buttons, (Buttons{{101, L"Install"}, {102, L"Not right now"}, {103, L"Skip update"}}));
  language = 0x040F;
  run_update_prompt(shell_.main, {"1", "Setup.exe"});
  EXPECT_EQ(narrow(shown.pszMainInstruction), "Uppfærsla í boði");
  EXPECT_EQ(narrow(shown_content.c_str()), "Nýrri útgáfa af Maravek fjaraðstoð er í boði.  (1)");
  EXPECT_EQ(shown_buttons, (Buttons{{101, L"Setja upp"}, {102, L"Ekki núna"}, {103, L"Sleppa uppfærslu"}}));
}

TEST_F(Prompts, SkippedVersionIsNotOfferedAndEveryOtherVersionIs) {
  shell_.main.skipped_version = "0.2";
  run_update_prompt(shell_.main, {"0.2", "Setup.exe"});
  EXPECT_EQ(calls, Lines{});
  for (const std::string& version : {std::string("0.2.0"), std::string("0.2 "), std::string("0.1.9"),
                                     std::string("0.2\0", 4), std::string("9")}) {
    calls.clear();
    run_update_prompt(shell_.main, {version, "Setup.exe"});
    EXPECT_EQ(calls, (Lines{"dialog"})) << version;
  }
  EXPECT_EQ(shell_.main.skipped_version, "0.2") << "the dialog was not answered";
}

TEST_F(Prompts, SkippingAnUpdateStoresItsVersion) {
  dialog_button = 103;
  run_update_prompt(shell_.main, {"0.3", "Setup.exe"});
  EXPECT_EQ(shell_.main.skipped_version, "0.3");
  EXPECT_EQ(load_config().skipped_version, "0.3");
}

TEST_F(Prompts, OtherAnswersToAnUpdateOfferAndAFailedDialogChangeNothing) {
  shell_.main.skipped_version = "0.1";
  threads_begun = 0;
  for (const int button : {102, IDCANCEL, IDOK, 0}) {
    dialog_button = button;
    run_update_prompt(shell_.main, {"0.4", "Setup.exe"});
  }
  dialog_result = E_OUTOFMEMORY;
  for (const int button : {101, 103}) {
    dialog_button = button;
    run_update_prompt(shell_.main, {"0.4", "Setup.exe"});
  }
  EXPECT_EQ(shell_.main.skipped_version, "0.1");
  EXPECT_EQ(threads_begun, 0) << "no download was started";
}

TEST_F(Prompts, ChoosingInstallStartsADownloadWhoseFailureIsShown) {
  dialog_button = 101;
  auto* const offer = new UpdateOffer{"0.5", "Setup.exe"};
  threads_begun = 0;
  SendMessageW(shell_.window, WM_UPDATE_OFFER, reinterpret_cast<WPARAM>(offer), 0);
  EXPECT_EQ(threads_begun, 1);
  wchar_t status[100] = {};
  EXPECT_TRUE(test::pump_until([&] {
    GetWindowTextW(shell_.main.status_label, status, 100);
    return narrow(status) == "Uppfærsla mistókst / Update download failed";
  })) << narrow(status);
  EXPECT_TRUE(IsWindow(shell_.window));
  SendMessageW(shell_.window, WM_UPDATE_OFFER, 0, 0);
  EXPECT_EQ(calls, (Lines{"dialog"})) << "an empty payload is not an offer";
}

}  // namespace
}  // namespace vlk::agent
