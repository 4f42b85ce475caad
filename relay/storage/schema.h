// The tables of the relay's database, and the migration of the tables of older versions.
#pragma once

#include <cstdint>

#include "relay/storage/database.h"

namespace vlk::relay {

// The version of the tables that this relay writes.
inline constexpr std::int64_t kSchemaVersion = 4;

// The version of a database's tables; 0 if it has none. Throws DatabaseError.
[[nodiscard]] std::int64_t schema_version(Database& database);

// Creates the tables in a new database, or changes the tables of an older version, in one transaction. Throws
// DatabaseError; a database of a newer version is left as it is.
void prepare_schema(Database& database);

}  // namespace vlk::relay
