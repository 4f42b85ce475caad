// What trusted proxies say about the source of a connection.
#include "relay/net/source/proxies.h"

#include <gtest/gtest.h>

#include "relay/base/source/source.h"

namespace vlk::relay {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes header(std::uint8_t command, std::uint8_t family, const Bytes& rest) {
  Bytes bytes = {0x0D, 0x0A, 0x0D, 0x0A, 0x00, 0x0D, 0x0A, 0x51, 0x55, 0x49, 0x54, 0x0A, command, family};
  bytes.push_back(static_cast<std::uint8_t>(rest.size() >> 8));
  bytes.push_back(static_cast<std::uint8_t>(rest.size() & 0xFF));
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  return bytes;
}

const Bytes kIpv4 = {192, 0, 2, 7, 10, 0, 0, 1, 0x12, 0x34, 0x20, 0xFB};

TEST(ProxyHeaderTest, NamesTheRealSource) {
  std::optional<Origin> origin;
  ASSERT_TRUE(parse_proxy_header(header(0x21, 0x11, kIpv4), origin));
  EXPECT_EQ(origin->address.to_string(), "192.0.2.7");
  EXPECT_EQ(origin->port, 0x1234);
  Bytes ipv6(36);
  ipv6[0] = 0x20, ipv6[1] = 0x01, ipv6[15] = 9, ipv6[33] = 80;
  ASSERT_TRUE(parse_proxy_header(header(0x21, 0x21, ipv6), origin));
  EXPECT_EQ(origin->address.to_string(), "2001::9");
  EXPECT_EQ(origin->port, 80);
  Bytes records = kIpv4;
  records.insert(records.end(), {4, 0, 2, 'x', 'y', 5, 0, 0});
  EXPECT_TRUE(parse_proxy_header(header(0x21, 0x11, records), origin));
}

TEST(ProxyHeaderTest, NamesNoSourceWhenTheProxySpeaksForItself) {
  std::optional<Origin> origin = Origin{};
  EXPECT_TRUE(parse_proxy_header(header(0x20, 0, {}), origin));
  EXPECT_FALSE(origin);
}

TEST(ProxyHeaderTest, InvalidHeadersAreRefused) {
  std::optional<Origin> origin;
  const Bytes good = header(0x21, 0x11, kIpv4);
  for (std::size_t size = 0; size < good.size(); ++size)
    EXPECT_FALSE(parse_proxy_header(std::span(good).first(size), origin)) << size;
  for (std::size_t at = 0; at < 16; ++at) {
    Bytes wrong = good;
    wrong[at] ^= 0x40;
    EXPECT_FALSE(parse_proxy_header(wrong, origin)) << at;
  }
  Bytes longer = good;
  longer.push_back(0);
  EXPECT_FALSE(parse_proxy_header(longer, origin));
  EXPECT_FALSE(parse_proxy_header(header(0x21, 0x12, kIpv4), origin)) << "UDP";
  EXPECT_FALSE(parse_proxy_header(header(0x21, 0x21, kIpv4), origin)) << "too short for IPv6";
  EXPECT_FALSE(parse_proxy_header(header(0x21, 0, {}), origin)) << "no address";
  Bytes record = kIpv4;
  record.insert(record.end(), {4, 0, 9, 'x'});
  EXPECT_FALSE(parse_proxy_header(header(0x21, 0x11, record), origin)) << "a record beyond the end";
  EXPECT_FALSE(proxy_rest(header(0x21, 0x11, Bytes(kLongestProxyRest + 1)))) << "too long";
}

TEST(ForwardedSourceTest, IsTheLastAddressThatIsNoProxy) {
  const std::vector<Network> proxies = {*parse_network("10.0.0.0/8"), *parse_network("::1")};
  const auto source = [&](const char* list) {
    const auto address = forwarded_source(list, proxies);
    return address ? address->to_string() : std::string("none");
  };
  EXPECT_EQ(source("192.0.2.1"), "192.0.2.1");
  EXPECT_EQ(source("198.51.100.9, 192.0.2.1"), "192.0.2.1") << "the first address is the peer's own claim";
  EXPECT_EQ(source("192.0.2.1, 10.1.2.3,::1"), "192.0.2.1");
  EXPECT_EQ(source("10.1.2.3"), "none");
  EXPECT_EQ(source("192.0.2.1, nonsense"), "none");
  EXPECT_EQ(source("192.0.2.1,"), "none");
  EXPECT_EQ(source(""), "none");
}

TEST(NetworkTest, ContainsTheAddressesWithTheSameFirstBits) {
  const auto inside = [](const char* network, const char* address) {
    return parse_network(network)->contains(boost::asio::ip::make_address(address));
  };
  EXPECT_TRUE(inside("192.0.2.0/25", "192.0.2.127"));
  EXPECT_FALSE(inside("192.0.2.0/25", "192.0.2.128"));
  EXPECT_TRUE(inside("192.0.2.1", "::ffff:192.0.2.1"));
  EXPECT_FALSE(inside("192.0.2.1", "192.0.2.2"));
  EXPECT_TRUE(inside("2001:db8::/32", "2001:db8:ffff::1"));
  EXPECT_FALSE(inside("2001:db8::/32", "2001:db9::1"));
  EXPECT_FALSE(inside("::/0", "192.0.2.1"));
  EXPECT_TRUE(inside("::ffff:192.0.2.0/121", "192.0.2.127"));
  EXPECT_FALSE(inside("::ffff:192.0.2.0/121", "192.0.2.128"));
  EXPECT_TRUE(inside("::ffff:192.0.2.1", "::ffff:192.0.2.1"));
  for (const char* text :
       {"", "::ffff:192.0.2.1/95", "nonsense", "192.0.2.1/33", "192.0.2.1/", "192.0.2.1/x", "::1/129", "/8"})
    EXPECT_FALSE(parse_network(text)) << text;
}

TEST(SourceTest, IsAnIpv4AddressOrTheFirst64BitsOfAnIpv6Address) {
  const auto source = [](const char* text) { return source_of(boost::asio::ip::make_address(text)); };
  EXPECT_EQ(source("192.0.2.1"), "192.0.2.1");
  EXPECT_EQ(source("::ffff:192.0.2.1"), "192.0.2.1");
  EXPECT_EQ(source("2001:db8:1:2:3:4:5:6"), "2001:db8:1:2::/64");
}

TEST(SourceTest, TextOfAPeerNamesItsAddressAndItsSource) {
  const std::string text = text_of(boost::asio::ip::make_address("2001:db8::1"), 80);
  EXPECT_EQ(text, "[2001:db8::1]:80");
  EXPECT_EQ(address_in(text), "2001:db8::1");
  EXPECT_EQ(source_in(text), "2001:db8::/64");
  EXPECT_EQ(address_in("192.0.2.1:80"), "192.0.2.1");
  EXPECT_EQ(source_in("192.0.2.1:80"), "192.0.2.1");
  EXPECT_EQ(source_in("nonsense"), "nonsense");
}

}  // namespace
}  // namespace vlk::relay
