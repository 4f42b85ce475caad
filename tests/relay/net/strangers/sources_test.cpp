// The source of a connection: its own address, or the one that a trusted proxy names.
#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

// A header of the PROXY protocol, version 2, for a TCP connection from this address and port 4660.
std::string proxy_header(const std::string& address) {
  const auto from = boost::asio::ip::make_address(address);
  std::string addresses;
  if (from.is_v4()) {
    for (const unsigned char byte : from.to_v4().to_bytes())
      addresses += static_cast<char>(byte);
  } else {
    for (const unsigned char byte : from.to_v6().to_bytes())
      addresses += static_cast<char>(byte);
  }
  addresses.append(addresses.size(), '\0');    // the relay's address
  addresses.append({0x12, 0x34, 0x20, 0x7B});  // the two ports
  std::string header("\r\n\r\n\0\r\nQUIT\n\x21", 13);
  header += from.is_v4() ? '\x11' : '\x21';
  header += '\0';
  header += static_cast<char>(addresses.size());
  return header + addresses;
}

class SourcesTest : public RelayTest {
 protected:
  void restart() {
    stop();
    start();
  }
  // Believes what the address 127.0.0.9 says about sources.
  void trust_proxy(bool protocol) {
    trusted_proxies_ = {*parse_network("127.0.0.9")};
    proxy_protocol_ = protocol;
    proxy_header_ = protocol ? "" : "X-Forwarded-For";
    limits_.failures_per_address = 1;
    restart();
  }
  // The status of a log-in with a wrong password. Each source may try one.
  unsigned attempt(RawPeer& peer, const std::string& header_lines = {}) {
    return peer.request("POST", "/api/login", R"({"name":"x","password":"wrong"})", header_lines);
  }
  // The same on a connection that begins with a header of the PROXY protocol.
  unsigned attempt_behind_proxy(const std::string& from, const std::string& address) {
    RawPeer peer(port_, from);
    peer.send_plain(proxy_header(address));
    peer.start_tls();
    return attempt(peer);
  }
};

TEST_F(SourcesTest, RelayListensOnIpv6AndCountsIpv4PeersByTheirAddresses) {
  address_ = "::";
  limits_.failures_per_address = 1;
  restart();
  const auto attempt_from = [&](const char* address) {
    RawPeer peer(port_, address);
    peer.start_tls();
    return attempt(peer);
  };
  EXPECT_EQ(attempt_from("::1"), 401u);
  EXPECT_EQ(attempt_from("::1"), 429u);
  EXPECT_EQ(attempt_from("127.0.0.1"), 401u);
  EXPECT_EQ(attempt_from("127.0.0.2"), 401u);
  EXPECT_EQ(attempt_from("127.0.0.2"), 429u);
  EXPECT_TRUE(logged("peer=[::1]:"));
  EXPECT_TRUE(logged("peer=127.0.0.2:"));
}

TEST_F(SourcesTest, ProxyProtocolOfATrustedProxyNamesTheSource) {
  trust_proxy(true);
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "192.0.2.1"), 401u);
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "192.0.2.1"), 429u);
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "192.0.2.2"), 401u);
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "2001:db8::1"), 401u);
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "2001:db8::ffff:2"), 429u) << "one host has all of the 64 bits";
  EXPECT_EQ(attempt_behind_proxy("127.0.0.9", "2001:db8:0:1::1"), 401u);
  EXPECT_TRUE(logged("peer=192.0.2.1:4660"));
  EXPECT_TRUE(logged("peer=[2001:db8::1]:4660"));
}

TEST_F(SourcesTest, ProxyProtocolOfAnotherAddressIsNoHandshakeAndATrustedProxyNeedsIt) {
  trust_proxy(true);
  EXPECT_THROW(attempt_behind_proxy("127.0.0.8", "192.0.2.1"), std::runtime_error);
  EXPECT_TRUE(logged("TLS handshake failed"));
  RawPeer direct(port_, "127.0.0.8");
  direct.start_tls();
  EXPECT_EQ(attempt(direct), 401u);
  RawPeer proxy(port_, "127.0.0.9");
  EXPECT_THROW(proxy.start_tls(), std::runtime_error);
  EXPECT_TRUE(logged("the proxy sent no valid header of the PROXY protocol"));
}

TEST_F(SourcesTest, HeaderOfATrustedProxyNamesTheSourceOfEachRequest) {
  trust_proxy(false);
  RawPeer proxy(port_, "127.0.0.9");
  proxy.start_tls();
  const std::string header = "X-Forwarded-For: ";
  EXPECT_EQ(attempt(proxy, header + "192.0.2.1\r\n"), 401u);
  EXPECT_EQ(attempt(proxy, header + "198.51.100.1, 192.0.2.1\r\n"), 429u) << "the first address is a claim";
  EXPECT_EQ(attempt(proxy, header + "192.0.2.2\r\n"), 401u);
  EXPECT_EQ(attempt(proxy, header + "2001:db8::1\r\n"), 401u);
  EXPECT_EQ(attempt(proxy, header + "2001:db8::2\r\n"), 429u);
}

TEST_F(SourcesTest, HeaderOfAnotherAddressIsIgnored) {
  trust_proxy(false);
  RawPeer peer(port_, "127.0.0.8");
  peer.start_tls();
  EXPECT_EQ(attempt(peer, "X-Forwarded-For: 192.0.2.1\r\n"), 401u);
  EXPECT_EQ(attempt(peer, "X-Forwarded-For: 192.0.2.2\r\n"), 429u);
}

TEST_F(SourcesTest, ConnectionsOfAProxyDoNotShareThePlacesOfOneSource) {
  trust_proxy(true);
  on_relay([&] { limits_.connections = 64; });  // 8 strangers, 2 of one source
  std::vector<std::unique_ptr<RawPeer>> peers;
  const auto connect = [&](const std::string& address) {
    peers.push_back(std::make_unique<RawPeer>(port_, "127.0.0.9"));
    peers.back()->send_plain(proxy_header(address));
    peers.back()->start_tls();
  };
  for (const char* address : {"192.0.2.1", "192.0.2.2", "192.0.2.3", "192.0.2.4"})
    connect(address);
  EXPECT_EQ(attempt(*peers.front()), 401u) << "was not cut";
  for (const char* address : {"2001:db8::1", "2001:db8::2", "2001:db8::3"})
    connect(address);
  EXPECT_TRUE(logged("peer=[2001:db8::1]:4660 agent=- connection closed to make room"));
}

}  // namespace
}  // namespace vlk::relay
