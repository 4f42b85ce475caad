// Reads the manifest.
#include "update/manifest.h"

#include "platform/debug_log.h"
#include "update/version.h"
#include "wire/json.h"

namespace vlk::agent {

std::optional<UpdateOffer> read_manifest(const std::string& text) {
  UpdateOffer offer{value_or(read_string(text, "agent_version"), ""),
                    value_or(read_string(text, "agent_file"), "")};
  const bool newer = !offer.version.empty() && is_newer(kUpdateVersion, offer.version);
  if (debug_input_requested()) {
    append_debug_log("update: manifest agent_version=%s current=%s newer=%d file=%s\n", offer.version.c_str(),
                     kUpdateVersion, newer ? 1 : 0, offer.file.c_str());
  }
  if (!newer || offer.file.empty()) return std::nullopt;
  return offer;
}

}  // namespace vlk::agent
