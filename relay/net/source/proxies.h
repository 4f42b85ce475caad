// Proxies in front of the relay that are trusted to name the real source of a connection.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/asio/ip/address.hpp>

namespace vlk::relay {

// The addresses with the same first `bits` bits as `address`.
struct Network {
  boost::asio::ip::address address;
  unsigned bits = 0;

  [[nodiscard]] bool contains(const boost::asio::ip::address& other) const;
};

// Reads ADDRESS or ADDRESS/BITS. Returns nothing if the text is neither.
[[nodiscard]] std::optional<Network> parse_network(const std::string& text);

[[nodiscard]] bool is_in(const std::vector<Network>& networks, const boost::asio::ip::address& address);

struct Origin {
  boost::asio::ip::address address;
  unsigned short port = 0;
};

// The header of the PROXY protocol, version 2: the first 16 bytes, then as many as they announce.
inline constexpr std::size_t kProxyPrefix = 16;         // bytes
inline constexpr std::size_t kLongestProxyRest = 1024;  // bytes after the prefix

// The number of bytes after the prefix; nothing if the prefix is invalid. `prefix` has kProxyPrefix bytes.
[[nodiscard]] std::optional<std::size_t> proxy_rest(std::span<const std::uint8_t> prefix);
// Reads a whole header whose prefix is valid. Returns false if it is invalid. `origin` receives the real
// source; nothing if the proxy speaks for itself, for instance in a health check.
[[nodiscard]] bool parse_proxy_header(std::span<const std::uint8_t> header, std::optional<Origin>& origin);

// The source in a header such as X-Forwarded-For: the last address in the list that is not one of the
// proxies. Nothing if there is none or the list is invalid from its end up to there.
[[nodiscard]] std::optional<boost::asio::ip::address> forwarded_source(std::string_view list,
                                                                       const std::vector<Network>& proxies);

}  // namespace vlk::relay
