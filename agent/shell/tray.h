// The icon in the notification area, with its tooltip and its menu. It stays visible while the window is
// hidden. Everything except tray_status_text runs on the UI thread.
#pragma once

#include <cstdint>
#include <string>

namespace vlk::agent {

struct MainWindow;

// Ids of the menu's entries, received with WM_COMMAND.
inline constexpr std::uint16_t kMenuOpen = 40001;
inline constexpr std::uint16_t kMenuUnattended = 40002;
inline constexpr std::uint16_t kMenuExit = 40003;

// Fills the icon's record and shows the icon. If the Windows shell restarts, the icon disappears and is not
// added again.
void add_tray_icon(MainWindow& main);
void remove_tray_icon(MainWindow& main);

// Shows the present status in the tooltip.
void refresh_tooltip(MainWindow& main);

// Shows the menu at the pointer until the user chooses an entry or closes it.
void show_tray_menu(MainWindow& main);

// The short status text, always in English.
[[nodiscard]] std::wstring tray_status_text(std::int32_t status, std::int32_t rep_count);

}  // namespace vlk::agent
