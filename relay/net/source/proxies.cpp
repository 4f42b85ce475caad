// Reads what proxies say about the source of a connection. The PROXY protocol is described in the document
// "The PROXY protocol, versions 1 & 2", section 2.2.
#include "relay/net/source/proxies.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::array<std::uint8_t, 12> kSignature = {0x0D, 0x0A, 0x0D, 0x0A, 0x00, 0x0D,
                                                     0x0A, 0x51, 0x55, 0x49, 0x54, 0x0A};
constexpr std::uint8_t kLocal = 0x20;  // version 2, and the proxy speaks for itself
constexpr std::uint8_t kProxy = 0x21;  // version 2, and the proxy speaks for another
constexpr std::uint8_t kTcpIpv4 = 0x11;
constexpr std::uint8_t kTcpIpv6 = 0x21;
constexpr std::size_t kIpv4Block = 12;  // two addresses and two ports
constexpr std::size_t kIpv6Block = 36;
constexpr unsigned kMappedBits = 96;  // before the IPv4 address in a mapped IPv6 address (RFC 4291, 2.5.5.2)

unsigned short port_at(std::span<const std::uint8_t> bytes, std::size_t at) {
  return static_cast<unsigned short>(bytes[at] << 8 | bytes[at + 1]);
}

// Whether the bytes are a sequence of records with a type, a length and as many bytes.
bool are_records(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    if (bytes.size() < 3) return false;
    const std::size_t size = port_at(bytes, 1);
    if (size > bytes.size() - 3) return false;
    bytes = bytes.subspan(3 + size);
  }
  return true;
}

asio::ip::address plain(const asio::ip::address& address) {
  if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
  return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
}

template <class Bytes>
bool same_bits(const Bytes& a, const Bytes& b, unsigned bits) {
  for (unsigned i = 0; i < bits; ++i) {
    const unsigned mask = 0x80u >> i % 8;
    if ((a[i / 8] & mask) != (b[i / 8] & mask)) return false;
  }
  return true;
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

}  // namespace

bool Network::contains(const asio::ip::address& other) const {
  const asio::ip::address its = plain(other);
  if (its.is_v4() != address.is_v4()) return false;
  return its.is_v4() ? same_bits(its.to_v4().to_bytes(), address.to_v4().to_bytes(), bits)
                     : same_bits(its.to_v6().to_bytes(), address.to_v6().to_bytes(), bits);
}

std::optional<Network> parse_network(const std::string& text) {
  const std::size_t slash = text.find('/');
  boost::system::error_code error;
  Network network{asio::ip::make_address(text.substr(0, slash), error), 0};
  if (error) return std::nullopt;
  const unsigned most = network.address.is_v4() ? 32 : 128;
  network.bits = most;
  if (slash != std::string::npos) {
    const char* end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data() + slash + 1, end, network.bits);
    if (fault != std::errc() || stop != end || network.bits > most) return std::nullopt;
  }
  // Addresses are compared in their plain form, so a network of mapped addresses is one of IPv4.
  const asio::ip::address its = plain(network.address);
  if (its == network.address) return network;
  if (network.bits < kMappedBits) return std::nullopt;
  return Network{its, network.bits - kMappedBits};
}

bool is_in(const std::vector<Network>& networks, const asio::ip::address& address) {
  return std::ranges::any_of(networks, [&](const Network& network) { return network.contains(address); });
}

std::optional<std::size_t> proxy_rest(std::span<const std::uint8_t> prefix) {
  if (prefix.size() != kProxyPrefix) return std::nullopt;
  if (!std::equal(kSignature.begin(), kSignature.end(), prefix.begin())) return std::nullopt;
  const std::size_t rest = port_at(prefix, 14);
  if ((prefix[12] != kLocal && prefix[12] != kProxy) || rest > kLongestProxyRest) return std::nullopt;
  return rest;
}

bool parse_proxy_header(std::span<const std::uint8_t> header, std::optional<Origin>& origin) {
  origin.reset();
  if (header.size() < kProxyPrefix) return false;
  const auto rest = proxy_rest(header.first(kProxyPrefix));
  if (!rest || header.size() != kProxyPrefix + *rest) return false;
  const std::uint8_t family = header[13];
  const auto block = header.subspan(kProxyPrefix);
  if (header[12] == kLocal) return true;
  if (family == kTcpIpv4 && block.size() >= kIpv4Block && are_records(block.subspan(kIpv4Block))) {
    asio::ip::address_v4::bytes_type bytes;
    std::copy_n(block.begin(), bytes.size(), bytes.begin());
    origin = {asio::ip::address_v4(bytes), port_at(block, 8)};
    return true;
  }
  if (family == kTcpIpv6 && block.size() >= kIpv6Block && are_records(block.subspan(kIpv6Block))) {
    asio::ip::address_v6::bytes_type bytes;
    std::copy_n(block.begin(), bytes.size(), bytes.begin());
    origin = {asio::ip::address_v6(bytes), port_at(block, 32)};
    return true;
  }
  return false;
}

std::optional<asio::ip::address> forwarded_source(std::string_view list,
                                                  const std::vector<Network>& proxies) {
  while (!list.empty()) {
    const std::size_t comma = list.rfind(',');
    const std::string_view last = trimmed(comma == std::string_view::npos ? list : list.substr(comma + 1));
    list = comma == std::string_view::npos ? std::string_view() : list.substr(0, comma);
    boost::system::error_code error;
    const auto address = asio::ip::make_address(std::string(last), error);
    if (error) return std::nullopt;
    if (!is_in(proxies, address)) return address;
  }
  return std::nullopt;
}

}  // namespace vlk::relay
