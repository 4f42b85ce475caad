// The two languages, and which of them is the user's.
#include "shell/texts.h"

#include <windows.h>

namespace vlk::agent {
namespace {

constexpr LANGID kPrimaryLanguage = 0x3FF;  // mask of the primary language in a language identifier

constexpr UiTexts kEnglish = {L"Maravek Remote Support"};
constexpr UiTexts kIcelandic = {L"Maravek Fjaraðstoð"};

}  // namespace

const UiTexts& ui_texts() {
  return (GetUserDefaultUILanguage() & kPrimaryLanguage) == LANG_ICELANDIC ? kIcelandic : kEnglish;
}

}  // namespace vlk::agent
