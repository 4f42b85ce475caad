// Files as they lie in a folder: the console's own, and the updates for agents.
#pragma once

#include <string>
#include <string_view>

#include "relay/http/replies.h"

namespace vlk::relay {

// The file of `folder` that the request's target names, "/" being index.html, or a reply that says what is
// wrong. No name leaves the folder: only plain names without a leading dot are looked for.
Reply serve_file(const std::string& folder, const Request& request);

// Whether the path is one of updates: /version.json, the manifest, or anything under /download/.
bool names_update(std::string_view path);

// The manifest or the file of `folder` that the target names, or a reply that says what is wrong. Names as
// above, and of files that lie directly in the folder.
Reply serve_update(const std::string& folder, const Request& request);

}  // namespace vlk::relay
