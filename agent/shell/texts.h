// What the local user reads, in English and in Icelandic.
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

// The texts for a Windows language identifier: Icelandic for any of its sublanguages, English for all others.
const UiTexts& texts_for_language(std::uint16_t language);

// The texts in the user's present language, which is asked for at each call.
const UiTexts& ui_texts();

// What the status line says for a value of Status; empty for any other value.
const wchar_t* status_text(const UiTexts& texts, std::int32_t status);
const wchar_t* status_text(std::int32_t status);  // in the user's present language

}  // namespace vlk::agent
