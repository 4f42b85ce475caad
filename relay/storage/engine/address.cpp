// Reads the URLs of databases.
#include "relay/storage/engine/address.h"

namespace vlk::relay {

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

}  // namespace vlk::relay
