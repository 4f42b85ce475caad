// The places of machines that wait for approval: a newer one takes them, but not those of approved machines.
#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

class StandingTest : public RelayTest {
 protected:
  // Lets new machines wait for approval, with one place for those of one source.
  void SetUp() override {
    RelayTest::SetUp();
    cookie_ = log_in();
    const Json open = request("GET", "/api/enrolment", {});
    for (const Json& window : open["windows"])
      request("DELETE", "/api/enrolment/" + std::to_string(window["id"].get<int>()), {});
    on_relay([&] { limits_.connections = 64; });
  }

  Json request(const std::string& method, const std::string& target, const Json& body) {
    const auto answer = Browser(port_).request(method, target, body.is_null() ? "" : body.dump(), cookie_);
    EXPECT_EQ(answer.status, 200U) << target;
    return answer.body;
  }

  // Enrols a machine and returns when it is connected.
  std::string enrol(RawPeer& peer) {
    peer.start_tls();
    peer.upgrade();
    peer.send_message(Msg::Hello, 0, R"({"role":"agent"})");
    peer.send_message(Msg::Enroll, 0, R"({"name":"new"})");
    const Json identity = Json::parse(peer.read_message(Msg::EnrollResult));
    peer.read_message(Msg::LoginResult);
    return identity["agent_id"];
  }

  bool made_room() {
    const std::lock_guard<std::mutex> guard(log_lock_);
    return log_text_.find("connection closed to make room") != std::string::npos;
  }

  std::string cookie_;
};

TEST_F(StandingTest, NewMachineTakesThePlaceOfOneThatWaitsButNotOfOneThatWasApproved) {
  RawPeer first(port_);
  const std::string id = enrol(first);
  request("POST", "/api/machines/approve", {{"ids", {id}}, {"group", 1}});
  first.send_message(Msg::Heartbeat, 0, "{}");
  first.send_message(Msg::NameUpdate, 0, R"({"name":"approved"})");
  wait_for_machine("approved", "online");
  RawPeer second(port_);
  enrol(second);
  EXPECT_FALSE(made_room());
  RawPeer third(port_);
  enrol(third);
  EXPECT_TRUE(made_room());
  wait_for_machine("approved", "online");
}

}  // namespace
}  // namespace vlk::relay
