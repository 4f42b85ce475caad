// Chooses the texts by the user's language in Windows.
#include "shell/texts.h"

#include <windows.h>

namespace vlk::agent {

const UiTexts& ui_texts() {
  return texts_for_language(GetUserDefaultUILanguage());
}

const wchar_t* status_text(std::int32_t status) {
  return status_text(ui_texts(), status);
}

}  // namespace vlk::agent
