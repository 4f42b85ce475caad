// The source of a connection, by which strangers share what the relay has.
#pragma once

#include <string>
#include <string_view>

#include <boost/asio/ip/address.hpp>

namespace vlk::relay {

// The IPv4 address, or the first 64 bits of an IPv6 address, because one host can use all addresses below
// them. An IPv4 address that is written as an IPv6 address (::ffff:192.0.2.1) counts as IPv4.
[[nodiscard]] std::string source_of(const boost::asio::ip::address& address);

// The address as the log shows it, with the port; an IPv6 address is in brackets.
[[nodiscard]] std::string text_of(const boost::asio::ip::address& address, unsigned short port);

// The address in a text of text_of(), without port and brackets.
[[nodiscard]] std::string address_in(std::string_view text);
// The source of the peer that a text of text_of() names. If the text is not one, it is its own source.
[[nodiscard]] std::string source_in(std::string_view text);

}  // namespace vlk::relay
