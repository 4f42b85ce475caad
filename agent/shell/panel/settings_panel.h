// The window's controls below the logo: the machine's name, the check box for unattended access, the button
// that applies both, and the status line. All functions run on the UI thread. For Windows files only.
#pragma once

#include <windows.h>

namespace vlk::agent {

struct MainWindow;

inline constexpr WORD kNameEdit = 1001;
inline constexpr WORD kUnattendedCheck = 1002;
inline constexpr WORD kApplyButton = 1003;
inline constexpr WORD kStatusLabel = 1004;

// Creates the controls as children of the window and fills them from the record.
void create_controls(MainWindow& main, HWND window);

// Copies the name and the check box to the record, the registry and the client. Every name is accepted.
void apply_settings(MainWindow& main);

// Changes unattended access everywhere: in the record, the registry, the autostart entry, the client, the
// check box and the tooltip. Every change after the start is made by this function.
void set_unattended(MainWindow& main, bool unattended);

}  // namespace vlk::agent
