// What another process uses.
#pragma once

#include <sys/types.h>

namespace vantelink_bench {

// The memory that a process has in use, in KiB. Throws std::runtime_error if there is no such process.
double memory(pid_t pid);

// The time that a process has used its processor so far, in seconds.
double processor(pid_t pid);

}  // namespace vantelink_bench
