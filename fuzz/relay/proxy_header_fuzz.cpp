// Reads any bytes as a header of the PROXY protocol, and as the text of a header that names the source.
#include <algorithm>

#include "relay/net/source/proxies.h"
#include "require.h"

using namespace vlk::relay;

namespace {

constexpr std::size_t kVersion4 = 12;    // bytes of two IPv4 addresses and ports
constexpr std::size_t kVersion6 = 36;    // bytes of two IPv6 addresses and ports
constexpr std::uint8_t kProxied = 0x21;  // version 2, a connection on behalf of another

// An origin has exactly the source address and port of the header.
void check_origin(std::span<const std::uint8_t> header, const Origin& origin) {
  REQUIRE(header[12] == kProxied);
  const std::size_t size = origin.address.is_v4() ? 4 : 16;
  REQUIRE(header[13] >> 4 == (size == 4 ? 1 : 2));
  REQUIRE(header.size() >= kProxyPrefix + (size == 4 ? kVersion4 : kVersion6));
  const auto from = header.subspan(kProxyPrefix, size);
  if (size == 4) {
    REQUIRE(std::ranges::equal(origin.address.to_v4().to_bytes(), from));
  } else {
    REQUIRE(std::ranges::equal(origin.address.to_v6().to_bytes(), from));
  }
  const auto port = header.subspan(kProxyPrefix + 2 * size, 2);
  REQUIRE(origin.port == port[0] * 256 + port[1]);
}

void check_header(std::span<const std::uint8_t> data) {
  if (data.size() < kProxyPrefix) return;
  const auto rest = proxy_rest(data.first(kProxyPrefix));
  if (!rest) return;
  REQUIRE(*rest <= kLongestProxyRest);
  if (data.size() < kProxyPrefix + *rest) return;
  const auto header = data.first(kProxyPrefix + *rest);
  std::optional<Origin> origin;
  const bool valid = parse_proxy_header(header, origin);
  REQUIRE(valid || !origin);
  if (origin) check_origin(header, *origin);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  check_header({data, size});
  static const std::vector<Network> proxies = {*parse_network("10.0.0.0/8"), *parse_network("fd00::/8")};
  const std::string text(data, data + size);
  if (const auto source = forwarded_source(text, proxies)) REQUIRE(!is_in(proxies, *source));
  if (const auto network = parse_network(text)) REQUIRE(network->contains(network->address));
  return 0;
}
