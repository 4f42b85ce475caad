// Reads the URLs of databases.
#include "relay/storage/engine/address.h"

#include <utility>

namespace vlk::relay {
namespace {

// What is added to a URL that does not say it. Without these, a server that is cut off is noticed after
// hours; with them after about five seconds.
constexpr std::pair<std::string_view, std::string_view> kDefaults[] = {
    {"connect_timeout", "5"},  {"keepalives_idle", "3"},     {"keepalives_interval", "1"},
    {"keepalives_count", "3"}, {"tcp_user_timeout", "5000"}, {"application_name", "vantelink-relay"},
};

}  // namespace

bool is_postgresql(std::string_view address) {
  return address.starts_with("postgresql://") || address.starts_with("postgres://");
}

std::string shown_address(const std::string& address) {
  if (!is_postgresql(address)) return address;
  std::string shown = address.substr(0, address.find('?'));  // the parameters can have a password
  const std::size_t colon = shown.find(':', shown.find("//") + 2);
  const std::size_t at = shown.rfind('@');
  if (at != std::string::npos && colon < at) shown.replace(colon, at - colon, ":...");
  return shown;
}

std::string with_time_limits(std::string url) {
  char mark = url.find('?') == std::string::npos ? '?' : '&';
  for (const auto& [key, value] : kDefaults) {
    if (url.find(std::string(key) + '=') != std::string::npos) continue;
    url.append(1, std::exchange(mark, '&')).append(key).append(1, '=').append(value);
  }
  return url;
}

}  // namespace vlk::relay
