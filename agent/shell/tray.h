// The icon in the notification area, the lasting sign of an agent whose window is hidden: its tooltip and its
// menu. All but the text runs on the UI thread.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

struct MainWindow;

// Ids of the menu, as they come back by WM_COMMAND.
inline constexpr std::uint16_t kMenuOpen = 40001;
inline constexpr std::uint16_t kMenuUnattended = 40002;
inline constexpr std::uint16_t kMenuExit = 40003;

// Fills the icon's record and shows the icon. One that the shell forgets, by starting anew, does not come
// back.
void add_tray_icon(MainWindow& main);
void remove_tray_icon(MainWindow& main);

// Puts the present status into the tooltip.
void refresh_tooltip(MainWindow& main);

// Shows the menu at the pointer until the user has chosen or turned away.
void show_tray_menu(MainWindow& main);

// The short status, in English whatever the user's language.
std::wstring tray_status_text(std::int32_t status, std::int32_t rep_count);

}  // namespace vlk::agent
