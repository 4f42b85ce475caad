// HTTP messages as the relay handles them: small bodies, whole in memory.
#pragma once

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <string>
#include <string_view>

namespace vlk::relay {

using Request = boost::beast::http::request<boost::beast::http::string_body>;
using Reply = boost::beast::http::response<boost::beast::http::string_body>;
using HttpStatus = boost::beast::http::status;

// A reply to `request` with the headers that every reply carries.
Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type, std::string body);

// `{"error":sentence}`.
Reply error_reply(const Request& request, HttpStatus status, const std::string& sentence);

// The value of a cookie; empty if there is none.
std::string cookie(const Request& request, std::string_view name);

// False when the request names an origin other than the host that it was sent to: another site's page made
// it.
bool same_origin(const Request& request);

}  // namespace vlk::relay
