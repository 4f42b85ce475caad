// The parts of a check of the set-up. None of them changes a file or what the relay does; they may wait up to
// some seconds, and do not throw for what is wrong.
#pragma once

#include "relay/program/check/findings.h"
#include "relay/program/options.h"

namespace vlk::relay {

// Files of the certificate and the key: readable, private, fitting each other and the names, and valid now.
void check_certificate(const Options& options, Findings& findings);
// The address and the port: free, or used by the relay of the same data folder.
void check_port(const Options& options, Findings& findings);
// The system's clock: kept synchronised, and not before the build of this program.
void check_clock(Findings& findings);
// Free space for the database and the spool.
void check_disk(const Options& options, Findings& findings);
// Whether the names of --host lead to this machine.
void check_names(const Options& options, Findings& findings);
// Owners and permission bits of the data folder and its files.
void check_data_folder(const Options& options, Findings& findings);
// The database: version, pages, locks, and whether the clock is behind its newest row.
void check_database(const Options& options, Findings& findings);
// The limit of file descriptors.
void check_descriptors(const Options& options, Findings& findings);
// The console's folder, the updates and the trail's log.
void check_folders(const Options& options, Findings& findings);
// Variables of the environment that look like settings and are none.
void check_environment(Findings& findings);

}  // namespace vlk::relay
