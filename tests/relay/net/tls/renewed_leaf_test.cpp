// A relay with its own authority, whose leaf renews itself while agents and browsers are connected.
#include <atomic>

#include <gtest/gtest.h>

#include "fakes/fakes.h"
#include "relay/metrics/operator_client.h"
#include "relay/net/tls/own_certificate.h"
#include "relay/net/tls/pairs.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

constexpr std::int64_t kDay = 24 * 3600;

class RenewedLeafTest : public RelayTest {
 protected:
  void SetUp() override {
    operators_ = parse_operators_address("127.0.0.1:0");
    RelayTest::SetUp();
  }
  void make_certificate() override {
    own_ = std::make_shared<OwnCertificate>(folder_, std::vector<std::string>{"localhost"},
                                            [this] { return now_.load(); });
    static_cast<void>(own_->prepare());
    certificate_ = own_->served();
    const Certificate trusted = std::move(read_chain(own_->trusted().certificate).at(0));
    unsigned char* bytes = nullptr;
    const int size = i2d_X509(trusted.get(), &bytes);
    vantelink_fakes::script().roots = {{bytes, bytes + size}};
    OPENSSL_free(bytes);
  }
  std::string refusal(std::int64_t now) const {
    return refusal_of(certificate_, own_->trusted().certificate, "localhost", now);
  }
  Json certificate_status() {
    return Browser(port_).request("GET", "/api/status", {}, log_in()).body["certificate"];
  }

  std::atomic<std::int64_t> now_{wall_seconds()};
};

TEST_F(RenewedLeafTest, ConnectionsGoOnAndNewOnesGetTheNewLeaf) {
  const auto agent = connect_agent("desk");
  const auto browser = console();
  const std::string first = served_certificate(port_);
  const std::int64_t later = now_ + 61 * kDay;
  now_ = later;
  ASSERT_TRUE(eventually([&] { return served_certificate(port_) != first; }));
  EXPECT_TRUE(logged("the certificate was loaded again; it ends at " + date_text(later + 90 * kDay)));
  EXPECT_EQ(refusal(later + 89 * kDay), "");
  browser->send({{"type", "ping"}, {"id", 7}});
  EXPECT_EQ(browser->read_text("pong")["id"], 7);
  wait_for_machine("desk", "online");
  const std::lock_guard<std::mutex> guard(log_lock_);
  EXPECT_EQ(log_text_.find("agent disconnected"), std::string::npos) << log_text_;
}

TEST_F(RenewedLeafTest, StatusShowsTheAuthorityAndWhatKeepsTheLeafFromBeingMade) {
  const Json well = certificate_status();
  EXPECT_EQ(well["authority"]["ends"], now_ + 3652 * kDay);
  EXPECT_EQ(well["authority"]["ends_soon"], false);
  EXPECT_TRUE(well["problem"].is_null()) << well;
  std::filesystem::create_directories(folder_ / "relay-leaf.pem.new/x");
  now_ += 61 * kDay;
  EXPECT_TRUE(logged("the certificate is not as it should be: "));
  EXPECT_TRUE(eventually([&] { return certificate_status()["problem"].is_string(); }));
}

TEST_F(RenewedLeafTest, EndOfTheAuthorityIsWarnedOf) {
  stop();
  const std::int64_t now = wall_seconds();
  write_pair(own_->trusted(), make_authority({"localhost"}, now - 3652 * kDay + 20 * kDay + 3600));
  static_cast<void>(own_->prepare());
  start();
  EXPECT_TRUE(logged("the relay's authority ends in 20 days, at ")) << log_text_;
  EXPECT_TRUE(logged("(" + own_->trusted().certificate +
                     "); make a new authority with: vantelink-relay authority prepare"))
      << log_text_;
  EXPECT_EQ(certificate_status()["authority"]["ends_soon"], true);
  const auto metrics =
      metric_values(ask_operators_port(server_->monitoring().port().value(), "/metrics").text);
  EXPECT_NEAR(metrics.at("vantelink_relay_certificate_end_seconds{certificate=\"authority\"}"),
              20.0 * kDay + 3600, 60);
  EXPECT_LE(metrics.at("vantelink_relay_certificate_end_seconds{certificate=\"relay\"}"), 20.0 * kDay + 3600);
}

TEST_F(RenewedLeafTest, EndOfASelfSignedCertificateIsWarnedOfWithAdvice) {
  stop();
  overwrite_pair(own_->trusted(), make_test_pair(12 * kDay + 3600));
  static_cast<void>(own_->prepare());
  start();
  EXPECT_TRUE(logged("the certificate ends in 12 days, at ")) << log_text_;
  EXPECT_TRUE(logged("(" + own_->trusted().certificate +
                     "); make a new authority with: vantelink-relay authority prepare"))
      << log_text_;
  EXPECT_TRUE(certificate_status()["authority"].is_null());
}

}  // namespace
}  // namespace vlk::relay
