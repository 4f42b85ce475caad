// The manifest: the agent version that the server offers.
#pragma once

#include <optional>
#include <string>

namespace vlk::agent {

// A newer agent that the server's manifest names. Both texts are UTF-8.
struct UpdateOffer {
  std::string version;
  std::string file;  // the installer's file name, on the server and in the temporary folder
};

// Reads a manifest. Gives an offer only if the text has a file and a version newer than the running one.
// Writes a line of the debug log if VLK_DEBUG_INPUT exists.
[[nodiscard]] std::optional<UpdateOffer> read_manifest(const std::string& text);

}  // namespace vlk::agent
