// Replies with the bytes of a file that is in memory.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "relay/http/replies.h"

namespace vlk::relay {

// True if the text is a file name of letters, digits, "-", "_" and "." that does not begin with a dot.
[[nodiscard]] bool plain_name(std::string_view name);

// True if the request's method is GET or HEAD.
[[nodiscard]] bool only_reads(const Request& request);

// A reply with these bytes, or an error if the request's method is neither GET nor HEAD.
[[nodiscard]] Reply file_reply(const Request& request, std::string_view content_type,
                               std::shared_ptr<const std::string> content);

}  // namespace vlk::relay
