// The entry that starts the agent, hidden, at the user's next logon.
#pragma once

namespace vlk::agent {

// Whether there is an entry, whatever it starts.
bool autostart_exists();

// Points the entry at this executable as it lies now, replacing an earlier one. True if it was written.
bool add_autostart();

// Removes the entry if there is one. Always true.
bool remove_autostart();

}  // namespace vlk::agent
