// The tables, indexes and triggers of the trail, and the SQL in which the engines differ.
#pragma once

#include <string>

#include "relay/storage/database.h"

namespace vlk::relay {

// Creates the tables, indexes and triggers of the trail. To be called within a transaction. Throws
// DatabaseError.
void create_trail(Database& database);

// A condition for rows of the trail whose actor, address or fields have a text, without regard to case. The
// values of its parameters are text_pattern(), the first and the last id.
[[nodiscard]] std::string text_condition(Dialect dialect);
[[nodiscard]] std::string text_pattern(Dialect dialect, const std::string& text);

// The expression for a text among the fields of a row. `field` is a name of letters.
[[nodiscard]] std::string field_text(Dialect dialect, const char* field);

}  // namespace vlk::relay
