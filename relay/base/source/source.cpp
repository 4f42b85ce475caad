// Names the sources of connections.
#include "relay/base/source/source.h"

#include <algorithm>

#include <boost/asio/ip/address_v6.hpp>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

asio::ip::address plain(const asio::ip::address& address) {
  if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
  return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
}

}  // namespace

std::string source_of(const asio::ip::address& address) {
  const asio::ip::address its = plain(address);
  if (its.is_v4()) return its.to_string();
  auto bytes = its.to_v6().to_bytes();
  std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
  return asio::ip::address_v6(bytes).to_string() + "/64";
}

std::string text_of(const asio::ip::address& address, unsigned short port) {
  const asio::ip::address its = plain(address);
  const std::string text = its.to_string();
  return (its.is_v4() ? text : '[' + text + ']') + ':' + std::to_string(port);
}

std::string address_in(std::string_view text) {
  text = text.substr(0, text.rfind(':'));
  if (text.starts_with('[') && text.ends_with(']')) text = text.substr(1, text.size() - 2);
  return std::string(text);
}

std::string source_in(std::string_view text) {
  const std::string address = address_in(text);
  boost::system::error_code error;
  const auto parsed = asio::ip::make_address(address, error);
  return error ? address : source_of(parsed);
}

}  // namespace vlk::relay
