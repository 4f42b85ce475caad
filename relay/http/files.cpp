// Makes the replies with files.
#include "relay/http/files.h"

#include <algorithm>
#include <utility>

namespace http = boost::beast::http;

namespace vlk::relay {

bool plain_name(std::string_view name) {
  return !name.empty() && name.front() != '.' && std::ranges::all_of(name, [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
           c == '-' || c == '_';
  });
}

bool only_reads(const Request& request) {
  return request.method() == http::verb::get || request.method() == http::verb::head;
}

Reply file_reply(const Request& request, std::string_view content_type,
                 std::shared_ptr<const std::string> content) {
  if (!only_reads(request)) {
    Reply reply = error_reply(request, HttpStatus::method_not_allowed, "Files can only be read.");
    reply.set(http::field::allow, "GET, HEAD");
    return reply;
  }
  Reply reply = make_reply(request, HttpStatus::ok, content_type, {});
  reply.body().shared = std::move(content);
  reply.prepare_payload();
  return reply;
}

}  // namespace vlk::relay
