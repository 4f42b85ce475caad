// Functions that check a setting's value and store it.
#pragma once

#include <cstddef>
#include <string>

#include "relay/program/option_table.h"

namespace vlk::relay {

[[nodiscard]] Setter text_setter(std::string Options::*field);
// A number from `least` to `most`.
[[nodiscard]] Setter number_setter(std::size_t Options::*field, std::size_t least, std::size_t most);
// A number from `least` to 65535. `what` is the text before "from", such as "a number of minutes".
[[nodiscard]] Setter short_setter(unsigned short Options::*field, unsigned short least, const char* what);
[[nodiscard]] Setter idle_setter();
[[nodiscard]] Setter host_setter();
[[nodiscard]] Setter proxy_setter();
[[nodiscard]] Setter database_setter();
[[nodiscard]] Setter address_setter();
[[nodiscard]] Setter metrics_setter();
[[nodiscard]] Setter log_format_setter();
// true or false.
[[nodiscard]] Setter flag_setter(bool Options::*field);

// The options for what the program does in place of serving. Only one of them can be given.
[[nodiscard]] Setter user_setter(Action action);
[[nodiscard]] Setter role_setter();
[[nodiscard]] Setter window_setter();

}  // namespace vlk::relay
