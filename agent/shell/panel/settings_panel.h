// The window's controls below the logo: the machine's name, the unattended switch, the button that applies
// both, and the status line. All of it runs on the UI thread. For Windows files only.
#pragma once

#include <windows.h>

namespace vlk::agent {

struct MainWindow;

inline constexpr WORD kNameEdit = 1001;
inline constexpr WORD kUnattendedCheck = 1002;
inline constexpr WORD kApplyButton = 1003;
inline constexpr WORD kStatusLabel = 1004;

// Makes the controls as children of the window and fills them from the record.
void create_controls(MainWindow& main, HWND window);

// Takes name and switch from the controls into the record, the registry and the client. Never refuses a name.
void apply_settings(MainWindow& main);

// The one way to change the switch once the program runs: record, registry, autostart entry, client, check
// box and tooltip follow.
void set_unattended(MainWindow& main, bool unattended);

}  // namespace vlk::agent
