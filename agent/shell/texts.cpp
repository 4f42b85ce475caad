// The texts in both languages, and the choice between them.
#include "shell/texts.h"

#include "client/agent_client.h"

namespace vlk::agent {
namespace {

constexpr std::uint16_t kPrimaryLanguage = 0x3FF;  // mask of the primary language in a language identifier
constexpr std::uint16_t kIcelandicLanguage = 15;

constexpr UiTexts kEnglish = {
    .title = L"Maravek Remote Support",
    .name_label = L"Vessel name:",
    .unattended_label = L"Enable unattended access",
    .apply_label = L"Apply",
    .status_offline = L"Offline",
    .status_connecting = L"Connecting…",
    .status_online = L"Online — ready for support",
    .status_in_session = L"Support session active",
    .menu_open = L"Open",
    .menu_unattended = L"Unattended access",
    .menu_exit = L"Exit",
    .consent_title = L"Maravek Remote Support",
    .consent_suffix =
        L" from Maravek is requesting to connect to your computer.\n\n"
        L"Allow this remote support session?",
    .update_heading = L"Update available",
    .update_body = L"A newer version of Maravek Remote Support is available.",
    .update_install = L"Install",
    .update_later = L"Not right now",
    .update_skip = L"Skip update",
};

constexpr UiTexts kIcelandic = {
    .title = L"Maravek Fjaraðstoð",
    .name_label = L"Skipsnafn/Skipsnúmer:",
    .unattended_label = L"Leyfa fjaraðstoð án eftirlits.",
    .apply_label = L"Vista",
    .status_offline = L"Ótengdur",
    .status_connecting = L"Tengist…",
    .status_online = L"Nettengdur, tilbúin fyrir fjaraðstoð",
    .status_in_session = L"Fjaraðstoð í gangi",
    .menu_open = L"Opna",
    .menu_unattended = L"Fjaraðstoð án eftirlits",
    .menu_exit = L"Hætta",
    .consent_title = L"Maravek Fjaraðstoð",
    .consent_suffix = L" frá Maravek óskar eftir að tengjast tölvunni þinni.\n\nLeyfa þessa fjaraðstoð?",
    .update_heading = L"Uppfærsla í boði",
    .update_body = L"Nýrri útgáfa af Maravek fjaraðstoð er í boði.",
    .update_install = L"Setja upp",
    .update_later = L"Ekki núna",
    .update_skip = L"Sleppa uppfærslu",
};

}  // namespace

const UiTexts& texts_for_language(std::uint16_t language) {
  return (language & kPrimaryLanguage) == kIcelandicLanguage ? kIcelandic : kEnglish;
}

const wchar_t* status_text(const UiTexts& texts, std::int32_t status) {
  switch (static_cast<Status>(status)) {
    case Status::Offline:
      return texts.status_offline;
    case Status::Connecting:
      return texts.status_connecting;
    case Status::Online:
      return texts.status_online;
    case Status::InSession:
      return texts.status_in_session;
  }
  return L"";
}

}  // namespace vlk::agent
