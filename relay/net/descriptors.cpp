// Raises the limit of file descriptors.
#include "relay/net/descriptors.h"

#include <sys/resource.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace vlk::relay {
namespace {

constexpr std::size_t kFiles = 64;  // the database, the updates, standard input and output

}  // namespace

void raise_descriptor_limit(std::size_t connections) {
  const rlim_t needed = connections + connections / 8 + kFiles;
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw std::runtime_error("cannot read the limit of file descriptors");
  if (limit.rlim_cur >= needed) return;
  rlimit raised = limit;
  raised.rlim_cur = needed;
  raised.rlim_max = std::max(limit.rlim_max, needed);
  if (::setrlimit(RLIMIT_NOFILE, &raised) == 0) return;
  throw std::runtime_error("the relay needs " + std::to_string(needed) + " file descriptors for " +
                           std::to_string(connections) + " connections, and the system allows " +
                           std::to_string(limit.rlim_max) +
                           "; set the limit (LimitNOFILE= in the service, or " + "ulimit -n) to " +
                           std::to_string(needed) + ", or allow fewer with --connections");
}

}  // namespace vlk::relay
