// What the last run of the relay left open: sessions, and questions on machines' screens.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "relay/storage/database.h"

namespace vlk::relay {

// Appends a row to the trail for the end of each session that the last run of the relay left open. `relay` is
// the relay's name if several share the database, and empty otherwise. To be called inside a transaction,
// before the row for the start of this run. Throws DatabaseError.
void end_open_sessions(Database& database, const std::string& relay = {});

// A request for a session that the machine has not answered.
struct OpenQuestion {
  std::string machine;  // the id
  std::uint32_t session = 0;
};

// The requests since `since`, in milliseconds since 1970, without an answer of the machine: their boxes may
// still stand on its screen. Throws DatabaseError.
[[nodiscard]] std::vector<OpenQuestion> open_questions(Database& database, std::int64_t since);

}  // namespace vlk::relay
