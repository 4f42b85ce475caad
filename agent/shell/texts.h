// The texts of the user interface, in English and in Icelandic.
#pragma once

#include <cstdint>

namespace vlk::agent {

struct UiTexts {
  const wchar_t* title;
  const wchar_t* name_label;
  const wchar_t* unattended_label;
  const wchar_t* apply_label;
  const wchar_t* status_offline;
  const wchar_t* status_connecting;
  const wchar_t* status_online;
  const wchar_t* status_in_session;
  const wchar_t* menu_open;
  const wchar_t* menu_unattended;
  const wchar_t* menu_exit;
  const wchar_t* consent_title;
  const wchar_t* consent_suffix;  // follows the representative's name
  const wchar_t* update_heading;
  const wchar_t* update_body;
  const wchar_t* update_install;
  const wchar_t* update_later;
  const wchar_t* update_skip;
};

// The texts for a Windows language identifier: Icelandic for each of its sublanguages, English for all
// others.
[[nodiscard]] const UiTexts& texts_for_language(std::uint16_t language);

// The texts in the user's language, which is looked up at each call.
[[nodiscard]] const UiTexts& ui_texts();

// The text of the status line for a value of Status; empty for any other value.
[[nodiscard]] const wchar_t* status_text(const UiTexts& texts, std::int32_t status);
[[nodiscard]] const wchar_t* status_text(std::int32_t status);  // in the user's language

}  // namespace vlk::agent
