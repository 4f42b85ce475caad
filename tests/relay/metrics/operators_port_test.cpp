// The port for operators, and peers that misuse it.
#include "relay/metrics/operators_port.h"

#include <deque>

#include "relay/metrics/operator_client.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

class OperatorsPortTest : public RelayTest {
 protected:
  void SetUp() override {
    operators_ = parse_operators_address("127.0.0.1:0");
    RelayTest::SetUp();
    port_of_operators_ = server_->monitoring().port().value();
  }
  OperatorAnswer ask(const std::string& path, const std::string& method = "GET") const {
    return ask_operators_port(port_of_operators_, path, method);
  }

  unsigned short port_of_operators_ = 0;
};

TEST_F(OperatorsPortTest, ThreePathsAreAnsweredAndTheOthersAreNot) {
  EXPECT_EQ(ask("/healthz").status, 200u);
  EXPECT_EQ(ask("/healthz?verbose").text, "ok\n");
  EXPECT_EQ(ask("/readyz").text, "ready\n");
  EXPECT_EQ(ask("/metrics").status, 200u);
  for (const char* path : {"/", "/api/me", "/console", "/metrics/", "/version.json", "*", "http://x/metrics"})
    EXPECT_EQ(ask(path).status, 404u) << path;
}

TEST_F(OperatorsPortTest, OnlyRequestsThatReadAreAnswered) {
  for (const char* method : {"POST", "PUT", "DELETE", "OPTIONS", "TRACE", "NONSENSE"})
    EXPECT_EQ(ask("/healthz", method).status, 405u) << method;
  const OperatorAnswer head = ask("/healthz", "HEAD");
  EXPECT_EQ(head.status, 200u);
  EXPECT_EQ(head.text, "");
  EXPECT_NE(head.head.find("Content-Length: 3"), std::string::npos) << head.head;
}

TEST_F(OperatorsPortTest, RequestsThatCannotBeReadAreRefused) {
  const std::string start = "GET /healthz HTTP/1.1\r\nX: ";
  const auto status = [&](const std::string& bytes) {
    return exchange(port_of_operators_, bytes).substr(0, 12);
  };
  EXPECT_EQ(status(start + std::string(3000, 'x') + "\r\n\r\n"), "HTTP/1.1 200");
  EXPECT_EQ(status(start + std::string(5000, 'x') + "\r\n\r\n"), "HTTP/1.1 431");
  EXPECT_EQ(status(start + std::string(60'000, 'x')), "HTTP/1.1 431");
  EXPECT_EQ(status("\x16\x03\x01 a handshake of TLS\r\n\r\n"), "HTTP/1.1 400");
  EXPECT_EQ(status(std::string(100, '\0') + "\r\n\r\n"), "HTTP/1.1 400");
  EXPECT_EQ(status("GET /healthz HTTP/9.9\r\n\r\n"), "HTTP/1.1 400");
  EXPECT_EQ(
      exchange(port_of_operators_, "GET /healthz HTTP/1.1\r\n\r\nGET /metrics HTTP/1.1\r\n\r\n").find("HELP"),
      std::string::npos)
      << "one request for each connection";
}

TEST_F(OperatorsPortTest, OldestConnectionGoesWhenAFurtherOneComes) {
  std::deque<IdleConnection> idle;
  for (std::size_t i = 0; i < OperatorsPort::kMostConnections; ++i)
    idle.emplace_back(port_of_operators_);
  EXPECT_EQ(ask("/healthz").status, 200u);
  EXPECT_EQ(idle.front().read(), "");
  EXPECT_EQ(ask("/healthz").status, 200u);
  // The newest of them is still there, and the port for browsers does not know of any of it.
  idle.back().send("GET /healthz HTTP/1.1\r\n\r\n");
  EXPECT_TRUE(idle.back().read().ends_with("ok\n"));
  EXPECT_EQ(Browser(port_).request("GET", "/").status, 200u);
  EXPECT_TRUE(eventually([&] {
    std::size_t open = 1;
    on_relay([&] { open = server_->connections(); });
    return open == 0;
  })) << "connections of operators take no place of others";
}

TEST_F(OperatorsPortTest, FloodTakesFewDescriptorsAndDoesNotDisturbTheOtherPort) {
  const auto descriptors = [&] {
    return metric_values(ask("/metrics").text).at("vantelink_relay_open_descriptors");
  };
  const double before = descriptors();
  constexpr int kFlood = 200;
  std::deque<IdleConnection> flood;
  for (int i = 0; i < kFlood; ++i) {
    flood.emplace_back(port_of_operators_);
    flood.back().send("GET /metrics HTTP/1.1\r\nX: ");
    if (i % 50 == 0) {
      EXPECT_NE(log_in(), "");
    }
  }
  EXPECT_LE(descriptors(), before + kFlood + OperatorsPort::kMostConnections + 4);
  EXPECT_EQ(ask("/healthz").status, 200u);
}

TEST_F(OperatorsPortTest, SlowConnectionsAreClosed) {
  on_relay([&] { limits_.operators_request = std::chrono::milliseconds(50); });
  const IdleConnection silent(port_of_operators_);
  EXPECT_EQ(silent.read(), "");
  const IdleConnection slow(port_of_operators_);
  EXPECT_TRUE(eventually([&] { return !slow.send("G"); })) << "a byte now and then does not help";
}

TEST_F(OperatorsPortTest, StopDoesNotWaitForConnections) {
  const IdleConnection silent(port_of_operators_);
  stop();
  EXPECT_EQ(silent.read(), "");
}

TEST_F(OperatorsPortTest, PrivateAddressIsNotWarnedOfAndAPublicOneIs) {
  EXPECT_TRUE(logged("the port for operators is http://127.0.0.1:"));
  EXPECT_EQ(log_text_.find("warning"), std::string::npos) << log_text_;
  stop();
  operators_ = parse_operators_address("0.0.0.0:0");
  start();
  EXPECT_TRUE(logged("warning: the port for operators has neither a log-in nor encryption"));
}

TEST_F(OperatorsPortTest, PortThatIsTakenIsReported) {
  try {
    const OperatorsPort second(server_->context().get_executor(),
                               {boost::asio::ip::make_address("127.0.0.1"), port_of_operators_}, nullptr,
                               *log_, limits_);
    FAIL();
  } catch (const std::runtime_error& failure) {
    EXPECT_NE(std::string(failure.what()).find("--metrics"), std::string::npos) << failure.what();
  }
}

TEST(OperatorsAddressTest, NeedsAnAddressAndAPort) {
  const auto text = [](const char* written) {
    const auto where = parse_operators_address(written);
    return where ? where->address.to_string() + " " + std::to_string(where->port) : "";
  };
  EXPECT_EQ(text("127.0.0.1:9464"), "127.0.0.1 9464");
  EXPECT_EQ(text("[::1]:0"), "::1 0");
  for (const char* wrong :
       {"", ":", "127.0.0.1", "9464", "127.0.0.1:", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:9464x",
        "localhost:9464", "::1:9464", "[127.0.0.1]:9464", "[::1]", "[]:1"})
    EXPECT_EQ(text(wrong), "") << wrong;
}

TEST(OperatorsAddressTest, PrivateNetworksAreKnown) {
  const auto is = [](const char* address) { return is_private(boost::asio::ip::make_address(address)); };
  for (const char* address :
       {"127.0.0.1", "10.1.2.3", "172.31.0.1", "192.168.7.7", "::1", "fd00::1", "fe80::1"})
    EXPECT_TRUE(is(address)) << address;
  for (const char* address : {"0.0.0.0", "::", "192.0.2.1", "172.32.0.1", "2001:db8::1"})
    EXPECT_FALSE(is(address)) << address;
}

}  // namespace
}  // namespace vlk::relay
