// Every way in which a connection can end, at every moment at which it can end: nothing of it remains.
#include <fstream>

#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

enum class Moment {
  BeforeTls,
  InHandshake,
  InHeader,
  InBody,
  WhilePasswordIsVerified,
  WhileReplyIsWritten,  // to a peer that does not read it
  AfterUpgrade,
  AfterHello,
  AfterLogIn,
  InFrame,
  InSession,
  InSessionOfBrowser,  // on the browser's connection
  InConsole,           // on a browser's connection without a session
  Count
};
enum class End {
  Fin,             // the peer closes the connection
  HalfClose,       // the peer closes only its sending direction
  Rst,             // the peer's system resets it
  TlsEnd,          // the peer ends the TLS connection and keeps the TCP connection open
  CloseFrame,      // the peer sends a close frame and keeps the connection open
  BadMessage,      // a message that is no envelope
  Unordered,       // a message that does not belong here
  FurtherFrames,   // a bad message, and a ping, a message and a close frame in the same bytes
  InvalidFrame,    // bytes that are no frame
  Silence,         // nothing, until a time limit is over
  RelaysCut,       // the relay cuts it: to make room for a newer one, or at a person's request
  LogInElsewhere,  // the same machine logs in on another connection
  Count
};

class EndsTest : public RelayTest {
 protected:
  void SetUp() override {
    limits_.enrolments_per_address = 10'000;
    limits_.failures_per_name = limits_.failures_per_address = limits_.failures_per_account = 10'000;
    RelayTest::SetUp();
    stop();
    std::ofstream(folder_ / "console/large.js") << std::string(16u << 20, ' ');
    start();
    cookie_ = log_in();
  }

  std::size_t connections() {
    std::size_t count = 0;
    on_relay([&] { count = server_->connections(); });
    return count;
  }

  // Brings a new connection to the moment.
  std::unique_ptr<RawPeer> reach(Moment moment) {
    auto peer = std::make_unique<RawPeer>(port_);
    if (moment == Moment::BeforeTls) return peer;
    if (moment == Moment::InHandshake) return peer->send_plain(RawPeer::half_hello()), std::move(peer);
    peer->start_tls();
    if (moment < Moment::AfterUpgrade) {
      peer->send(request_at(moment));
    } else if (moment >= Moment::InSessionOfBrowser) {
      peer->upgrade("/console",
                    "Origin: https://localhost\r\nCookie: __Host-vantelink_session=" + cookie_ + "\r\n");
      if (moment == Moment::InSessionOfBrowser) begin_session_of_browser(*peer);
    } else {
      peer->upgrade();
      go_on_as_agent(*peer, moment);
    }
    return peer;
  }

  static std::string request_at(Moment moment) {
    if (moment == Moment::InHeader) return "GET / HTTP/1.1\r\nHost";
    if (moment == Moment::WhileReplyIsWritten) return "GET /large.js HTTP/1.1\r\nHost: x\r\n\r\n";
    const std::string body = R"({"name":"admin","password":"wrong"})";
    const std::string head = "POST /api/login HTTP/1.1\r\nHost: x\r\nOrigin: https://x\r\nContent-Length: " +
                             std::to_string(body.size()) + "\r\n\r\n";
    return moment == Moment::InBody ? head + body.front() : head + body;
  }

  void go_on_as_agent(RawPeer& peer, Moment moment) {
    if (moment == Moment::AfterUpgrade) return;
    peer.send_message(Msg::Hello, 0, R"({"role":"agent"})");
    if (moment == Moment::AfterHello) return;
    peer.send_message(Msg::Enroll, 0, R"({"name":"ends"})");
    identity_ = Json::parse(peer.read_message(Msg::EnrollResult));
    peer.read_message(Msg::LoginResult);
    const std::string frame = peer.frame(kWsBinary, std::string(1000, 'x'));
    if (moment == Moment::InFrame) peer.send(frame.substr(0, 500));
    if (moment == Moment::InSession) begin_session(peer);
  }

  void begin_session(RawPeer& peer) {
    console_ = std::make_unique<Browser>(port_);
    unsigned status = 0;
    ASSERT_TRUE(console_->open_console(cookie_, status)) << status;
    console_->send({{"type", "open"}, {"agent", identity_["agent_id"]}});
    peer.read_message(Msg::SessionRequest);
    peer.send_message(Msg::SessionAccept, peer.last_session(), "{}");
    session_ = console_->accepted_session();
  }

  void begin_session_of_browser(RawPeer& peer) {
    machine_ = reach(Moment::AfterLogIn);
    peer.send(RawPeer::frame(kWsText, Json{{"type", "open"}, {"agent", identity_["agent_id"]}}.dump()));
    machine_->read_message(Msg::SessionRequest);
    machine_->send_message(Msg::SessionAccept, machine_->last_session(), "{}");
    machine_->send_message(Msg::StreamFrame, machine_->last_session(), "0123456789abcdef");
    peer.read_message(Msg::StreamFrame);
  }

  void end(RawPeer& peer, Moment moment, End how) {
    const std::string bad = peer.frame(kWsBinary, "x");
    switch (how) {
      case End::Fin:
        return peer.close();
      case End::HalfClose:
        return peer.half_close();
      case End::Rst:
        return peer.reset();
      case End::TlsEnd:
        return peer.finish();
      case End::CloseFrame:
        return peer.send(peer.frame(kWsClose, ""));
      case End::BadMessage:
        return peer.send(bad);
      case End::Unordered:
        return peer.send_message(moment == Moment::AfterUpgrade ? Msg::Login : Msg::Hello, 0, "{}");
      case End::FurtherFrames:
        return peer.send(bad + peer.frame(kWsPing, "p") + bad + peer.frame(kWsClose, ""));
      case End::InvalidFrame:
        return peer.send(std::string("\xFF\xFF\xFF\xFF", 4));
      case End::RelaysCut:
        return cut_by_relay(moment);
      case End::LogInElsewhere:
        return log_in_elsewhere();
      default:
        return;
    }
  }

  // Lets a person cut a machine's connection or end a browser's log-in, or newer strangers take the place.
  void cut_by_relay(Moment moment) {
    if (moment == Moment::InSession) return console_->send({{"type", "cut"}, {"session", session_}});
    if (moment >= Moment::AfterLogIn) {
      const bool machine = moment < Moment::InSessionOfBrowser;
      const Json body = machine ? Json{{"ids", Json::array({identity_["agent_id"]})}} : Json::object();
      const char* target = machine ? "/api/machines/disconnect" : "/api/logout";
      EXPECT_EQ(Browser(port_).request("POST", target, body.dump(), cookie_).status, 200u);
      if (!machine) cookie_ = log_in();
      return;
    }
    on_relay([&] { limits_.connections = 8; });
    other_ = std::make_unique<RawPeer>(port_);
    other_->start_tls();
    on_relay([&] { limits_.connections = 8192; });
  }

  void log_in_elsewhere() {
    other_ = std::make_unique<RawPeer>(port_);
    other_->start_tls();
    other_->upgrade();
    other_->send_message(Msg::Hello, 0, R"({"role":"agent"})");
    if (identity_.is_null()) identity_ = {{"agent_id", "nobody"}, {"agent_secret", "x"}};
    other_->send_message(
        Msg::Login, 0,
        Json{{"agent_id", identity_["agent_id"]}, {"secret", identity_["agent_secret"]}}.dump());
  }

  // Lets the time limits of peers that have not logged in, of silent agents and, while none is needed, of
  // silent browsers be over.
  void set_limits(std::chrono::milliseconds limit) {
    on_relay([&] {
      limits_.handshake = limits_.keep_alive = limits_.refused_hold = limit;
      limits_.agent_silence = 4 * limit;
      limits_.idle_browser = console_ ? std::chrono::seconds(60) : 4 * limit;
    });
  }

  void reach_and_end(Moment moment, End how) {
    identity_ = {};
    const auto peer = reach(moment);
    end(*peer, moment, how);
    // What does not end the connection itself is ended by a time limit.
    set_limits(std::chrono::milliseconds(50));
    other_.reset();
    machine_.reset();
    ASSERT_TRUE(eventually([&] { return connections() == (console_ ? 1u : 0u); })) << connections();
    console_.reset();
    ASSERT_TRUE(eventually([&] { return connections() == 0; })) << connections();
    set_limits(std::chrono::seconds(20));
  }

  Json identity_;
  std::uint32_t session_ = 0;
  std::string cookie_;
  std::unique_ptr<Browser> console_;
  std::unique_ptr<RawPeer> other_;
  std::unique_ptr<RawPeer> machine_;
};

TEST_F(EndsTest, NothingRemainsOfAConnectionHoweverAndWheneverItEnds) {
  const std::size_t before = settled_heap();
  for (int moment = 0; moment < static_cast<int>(Moment::Count); ++moment) {
    for (int how = 0; how < static_cast<int>(End::Count); ++how) {
      SCOPED_TRACE("moment " + std::to_string(moment) + ", end " + std::to_string(how));
      ASSERT_NO_FATAL_FAILURE(reach_and_end(static_cast<Moment>(moment), static_cast<End>(how)));
    }
  }
  EXPECT_LT(settled_heap(), before + (512u << 10));
}

TEST_F(EndsTest, RelayStopsWithConnectionsAtEveryMoment) {
  std::vector<std::unique_ptr<RawPeer>> peers, machines;
  for (int moment = 0; moment < static_cast<int>(Moment::Count); ++moment) {
    peers.push_back(reach(static_cast<Moment>(moment)));
    machines.push_back(std::move(machine_));
  }
  stop();
  for (const auto& peer : peers)
    EXPECT_TRUE(peer->ended());
}

}  // namespace
}  // namespace vlk::relay
