// The rows of many machines in a database, and what it costs to read and to write them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "relay/storage/cluster/relay_store.h"
#include "relay/storage/database.h"

namespace vantelink_bench {

// Adds the machines. All functions here throw DatabaseError or std::runtime_error.
void fill_machines(vlk::relay::Database& database, std::size_t machines);

// Enters the relays in place of all others, and the machines as connected to them in turn. Returns the
// relays' rows.
std::vector<vlk::relay::RelayRow> fill_presence(vlk::relay::Database& database, std::size_t relays);

// Prints the size of the rows on the disk.
void print_sizes(vlk::relay::Database& database, std::size_t machines);

// Reads all machines and where they are, as a relay does at its start, and prints the time and the memory.
// Each is done in a process of its own; the calling one must have no other threads.
void print_loads(const std::string& url);

// Reads everything that a relay reads again after a report, in one transaction as there. Returns the seconds.
double read_again(vlk::relay::Database& database);

// Prints what else the relays write for their machines: the times at which those of one relay were last seen,
// and the trail's row of one log-in after the other.
void print_other_writes(vlk::relay::Database& database, const std::vector<std::string>& machines,
                        std::size_t of_one_relay);

}  // namespace vantelink_bench
