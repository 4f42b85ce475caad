// The manifest: which agent the server has on offer.
#pragma once

#include <optional>
#include <string>

namespace vlk::agent {

// A newer agent, as the server's manifest names it. UTF-8.
struct UpdateOffer {
  std::string version;
  std::string file;  // name of the installer, on the server and in the temporary folder
};

// Reads a manifest; a text that is none is one without fields. An offer only if it names a file and a version
// newer than the running one. Writes a line of the debug log if VLK_DEBUG_INPUT exists.
std::optional<UpdateOffer> read_manifest(const std::string& text);

}  // namespace vlk::agent
