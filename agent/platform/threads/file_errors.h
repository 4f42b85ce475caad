// What Windows does when a file call of a thread fails for a reason that a person could remove.
#pragma once

namespace vlk {

// Makes file calls of the calling thread fail where Windows would show a message box and wait for an answer,
// for instance when a card reader has no card. Each thread of the agent that uses files calls this when it
// starts. Programs that the agent starts are not affected: they inherit the mode of the process, which stays
// unchanged. Does nothing on hosts without such message boxes.
void disable_file_error_boxes();

}  // namespace vlk
