// Builds replies, with the headers that protect the console in a browser.
#include "relay/http/replies.h"

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

// Allows the page to load scripts, styles and images from the relay and to connect to it, not to other hosts.
// Images may also be made by the page itself (blob:).
constexpr char kContentPolicy[] =
    "default-src 'self'; img-src 'self' blob:; object-src 'none'; base-uri 'none'; "
    "form-action 'self'; frame-ancestors 'none'";

// The console uses the features with (self); the others are off, also for anything that an attacker injects.
constexpr char kPermissions[] =
    "clipboard-read=(self), clipboard-write=(self), fullscreen=(self), publickey-credentials-create=(self), "
    "publickey-credentials-get=(self), screen-wake-lock=(self), accelerometer=(), autoplay=(), camera=(), "
    "display-capture=(), encrypted-media=(), geolocation=(), gyroscope=(), hid=(), idle-detection=(), "
    "local-fonts=(), magnetometer=(), microphone=(), midi=(), payment=(), picture-in-picture=(), serial=(), "
    "usb=(), xr-spatial-tracking=()";

// Browsers connect to this host without TLS no more: for two years, counted from each reply.
constexpr char kStrictTransport[] = "max-age=63072000";

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  return text;
}

}  // namespace

Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type, std::string body) {
  Reply reply(status, request.version());
  reply.set(http::field::content_type, content_type);
  reply.set(http::field::cache_control, "no-store");
  reply.set("Content-Security-Policy", kContentPolicy);
  reply.set("X-Content-Type-Options", "nosniff");
  reply.set("Referrer-Policy", "no-referrer");
  reply.set("Strict-Transport-Security", kStrictTransport);
  reply.set("Cross-Origin-Opener-Policy", "same-origin");
  reply.set("Cross-Origin-Resource-Policy", "same-origin");
  reply.set("Permissions-Policy", kPermissions);
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

bool from_own_page(const Request& request) {
  const auto origin = request.find(http::field::origin);
  const std::string host(request[http::field::host]);
  return origin != request.end() && !host.empty() && origin->value() == "https://" + host;
}

}  // namespace vlk::relay
