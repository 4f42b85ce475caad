// Builds replies, with the headers that protect the console in a browser.
#include "relay/http/replies.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

constexpr std::size_t kPiece = 64 * 1024;  // bytes of a file that are in memory at once

// Allows the page to load scripts, styles and images from the relay and to connect to it, not to other hosts.
// Images may also be made by the page itself (blob:).
constexpr char kContentPolicy[] =
    "default-src 'self'; img-src 'self' blob:; object-src 'none'; base-uri 'none'; "
    "form-action 'self'; frame-ancestors 'none'";

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  return text;
}

}  // namespace

boost::optional<std::pair<ReplyBody::writer::const_buffers_type, bool>> ReplyBody::writer::get(
    boost::beast::error_code& error) {
  error = {};
  if (!body_.file.is_open()) return {{boost::asio::buffer(body_.text), false}};
  piece_.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, left_)));
  const std::size_t size = body_.file.read(piece_.data(), piece_.size(), error);
  // The file was shortened after the header with its length was sent.
  if (size == 0 && left_ > 0 && !error) error = http::error::partial_message;
  left_ -= size;
  return {{boost::asio::buffer(piece_.data(), size), left_ > 0}};
}

Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type, std::string body) {
  Reply reply(status, request.version());
  reply.set(http::field::content_type, content_type);
  reply.set(http::field::cache_control, "no-cache");
  reply.set("Content-Security-Policy", kContentPolicy);
  reply.set("X-Content-Type-Options", "nosniff");
  reply.set("Referrer-Policy", "no-referrer");
  reply.keep_alive(request.keep_alive());
  reply.body().text = std::move(body);
  reply.prepare_payload();
  return reply;
}

Reply error_reply(const Request& request, HttpStatus status, const std::string& sentence) {
  return make_reply(request, status, "application/json", dump({{"error", sentence}}));
}

std::string_view path_of(const Request& request) {
  const std::string_view target(request.target());
  return target.substr(0, target.find('?'));
}

std::string cookie(const Request& request, std::string_view name) {
  std::string_view rest = request[http::field::cookie];
  while (!rest.empty()) {
    const std::size_t end = rest.find(';');
    const std::string_view pair = trimmed(rest.substr(0, end));
    rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    const std::size_t equals = pair.find('=');
    if (equals != std::string_view::npos && pair.substr(0, equals) == name)
      return std::string(pair.substr(equals + 1));
  }
  return {};
}

bool same_origin(const Request& request) {
  const auto origin = request.find(http::field::origin);
  if (origin == request.end()) return true;
  return origin->value() == "https://" + std::string(request[http::field::host]);
}

}  // namespace vlk::relay
