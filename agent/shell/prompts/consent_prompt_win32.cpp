// The prompt is the system's message box; a hook finds its window handle.
#include "shell/prompts/consent_prompt.h"

#include <atomic>

#include "input/injector.h"
#include "platform/text.h"
#include "platform/win32/handles_win32.h"
#include "shell/main_window.h"
#include "shell/texts.h"

namespace vlk::agent {
namespace {

// System-modal, so that the box is above all other windows even while the main window is hidden.
constexpr UINT kBoxStyle = MB_YESNO | MB_ICONQUESTION | MB_SYSTEMMODAL;
constexpr char kDeclined[] = "declined";

using UniqueHook = UniqueHandle<HHOOK, UnhookWindowsHookEx>;

// Session and window of the open prompt. If a second prompt opens over the first, the end of the second
// prompt clears both values: the first prompt can then no longer be withdrawn and waits for the user.
std::atomic<std::uint32_t> consent_session{0};
std::atomic<HWND> consent_box{nullptr};  // null until the box is activated

LRESULT CALLBACK note_activated(int code, WPARAM wparam, LPARAM lparam) {
  if (code == HCBT_ACTIVATE) consent_box.exchange(reinterpret_cast<HWND>(wparam));
  return CallNextHookEx(nullptr, code, wparam, lparam);
}

int ask(const MainWindow& main, const std::wstring& text) {
  // If the hook cannot be set, the box still opens but cannot be withdrawn.
  const UniqueHook hook(SetWindowsHookExW(WH_CBT, note_activated, nullptr, GetCurrentThreadId()));
  return MessageBoxW(main.window, text.c_str(), ui_texts().consent_title, kBoxStyle);
}

}  // namespace

void run_consent_prompt(MainWindow& main) {
  std::uint32_t session = 0;
  std::string representative;
  {
    const MutexLock lock(main.pending_lock);
    session = main.pending_session;
    representative = main.pending_rep_name;
  }
  const std::wstring text = Utf8ToWide(representative) + ui_texts().consent_suffix;
  consent_session.exchange(session);
  const int answer = ask(main, text);
  consent_session.exchange(0);
  consent_box.exchange(nullptr);
  if (answer == IDYES) {
    SetInputSessionActive(true);
    main.client->accept_session(session);
  } else {
    main.client->reject_session(session, kDeclined);
  }
}

void cancel_consent_prompt(std::uint32_t session) {
  if (session != consent_session) return;
  const HWND box = consent_box;
  if (box == nullptr) return;
  // This sends the answer "declined", even if the server has already ended the session.
  PostMessageW(box, WM_COMMAND, IDNO, 0);
}

}  // namespace vlk::agent
