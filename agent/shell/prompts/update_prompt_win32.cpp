// The update dialog and its three answers.
#include "shell/prompts/update_prompt.h"

#include <windows.h>
#include <commctrl.h>

#include <iterator>
#include <optional>

#include "platform/text.h"
#include "shell/main_window.h"
#include "shell/texts.h"
#include "update/manifest.h"
#include "update/update_threads.h"

namespace vlk::agent {
namespace {

constexpr int kInstall = 101;
constexpr int kLater = 102;
constexpr int kSkip = 103;

static_assert(sizeof(TASKDIALOGCONFIG) == 160);

// The button that closed the dialog; no value if the dialog could not be shown.
[[nodiscard]] std::optional<int> ask(HWND parent, const UpdateOffer& offer) {
  const UiTexts& texts = ui_texts();
  const std::wstring content = std::wstring(texts.update_body) + L"  (" + Utf8ToWide(offer.version) + L")";
  const TASKDIALOG_BUTTON buttons[] = {
      {kInstall, texts.update_install}, {kLater, texts.update_later}, {kSkip, texts.update_skip}};
  TASKDIALOGCONFIG config = {};
  config.cbSize = sizeof config;
  config.hwndParent = parent;
  config.dwFlags = TDF_ALLOW_DIALOG_CANCELLATION | TDF_POSITION_RELATIVE_TO_WINDOW;
  config.pszWindowTitle = texts.title;
  config.pszMainIcon = TD_INFORMATION_ICON;
  config.pszMainInstruction = texts.update_heading;
  config.pszContent = content.c_str();
  config.cButtons = static_cast<UINT>(std::size(buttons));
  config.pButtons = buttons;
  int button = 0;
  if (FAILED(TaskDialogIndirect(&config, &button, nullptr, nullptr))) return std::nullopt;
  return button;
}

}  // namespace

void run_update_prompt(MainWindow& main, const UpdateOffer& offer) {
  if (offer.version == main.skipped_version) return;
  const std::optional<int> button = ask(main.window, offer);
  if (button == kInstall) {
    const ServerAddress server = server_address(main);
    const HWND window = main.window;
    start_update_download(
        server.host, server.port, offer.file,
        {.on_status = [window](const std::wstring& text) { post_status_text(window, text); },
         .on_installer_started = [window] { PostMessageW(window, WM_EXIT_FOR_UPDATE, 0, 0); }});
  } else if (button == kSkip) {
    main.skipped_version = offer.version;
    save_config(main);
  }
}

}  // namespace vlk::agent
