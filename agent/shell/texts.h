// What the local user reads, in English and in Icelandic.
#pragma once

namespace vlk::agent {

struct UiTexts {
  const wchar_t* title;
};

// The texts in the user's present language, which is asked for at each call.
const UiTexts& ui_texts();

}  // namespace vlk::agent
