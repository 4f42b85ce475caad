// Serves the console's files and the updates for agents.
#pragma once

#include <string>
#include <string_view>

#include "relay/http/replies.h"

namespace vlk::relay {

// Replies with the file of `folder` that the request's target names ("/" names index.html), or with an error.
// Only plain names without a leading dot are accepted, so no file outside the folder can be requested.
[[nodiscard]] Reply serve_file(const std::string& folder, const Request& request);

// True if the path is that of the update manifest, /version.json, or is under /download/.
[[nodiscard]] bool names_update(std::string_view path);

// Replies with the manifest or with the file of `folder` that the target names, or with an error. The rule
// for names is that of serve_file. Files in subfolders are not served.
[[nodiscard]] Reply serve_update(const std::string& folder, const Request& request);

}  // namespace vlk::relay
