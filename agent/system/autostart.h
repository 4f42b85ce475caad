// The autostart entry, which starts the agent hidden when the user logs on.
#pragma once

namespace vlk::agent {

// Whether the entry exists, whatever it starts.
bool autostart_exists();

// Writes the entry with this executable's present path, replacing an earlier entry. True if it was written.
bool add_autostart();

// Removes the entry if it exists. Always true.
bool remove_autostart();

}  // namespace vlk::agent
