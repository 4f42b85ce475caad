// The tables of the relay's database, and the migration of the tables of older versions.
#pragma once

#include "relay/storage/database.h"

namespace vlk::relay {

// Creates the tables in a new database, or changes the tables of an older version, in one transaction. Throws
// DatabaseError; a database of a newer version is left as it is.
void prepare_schema(Database& database);

}  // namespace vlk::relay
