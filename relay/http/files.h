// Serves files: those of the console, and the updates for agents.
#pragma once

#include <string>
#include <string_view>

#include "relay/http/replies.h"

namespace vlk::relay {

// The file of `folder` that the request's target names ("/" names index.html), or a reply that says what is
// wrong. Only plain names without a leading dot are accepted, so no name leaves the folder.
[[nodiscard]] Reply serve_file(const std::string& folder, const Request& request);

// True for the paths of updates: the manifest /version.json, and everything under /download/.
[[nodiscard]] bool names_update(std::string_view path);

// The manifest or the file of `folder` that the target names, or a reply that says what is wrong. Names
// follow the same rule, and files in subfolders are not served.
[[nodiscard]] Reply serve_update(const std::string& folder, const Request& request);

}  // namespace vlk::relay
