// The console's own files.
#pragma once

#include <string>

#include "relay/http_reply.h"

namespace vlk::relay {

// The file of `folder` that the request's target names, "/" being index.html, or a reply that says what is
// wrong. No name leaves the folder: only plain names without a leading dot are looked for.
Reply serve_file(const std::string& folder, const Request& request);

}  // namespace vlk::relay
