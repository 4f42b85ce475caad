// What one stranger costs the relay has bounds: refused upgrades, new names, malformed requests, wrong
// passwords.
#include <atomic>
#include <random>

#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

class BoundsTest : public RelayTest {
 protected:
  std::size_t log_lines_with(const std::string& text) {
    const std::lock_guard<std::mutex> guard(log_lock_);
    std::size_t count = 0;
    for (std::size_t at = 0; (at = log_text_.find(text, at)) != std::string::npos; ++at)
      ++count;
    return count;
  }
};

TEST_F(BoundsTest, UpgradeForAgentsIsRefusedToAPage) {
  RawPeer page(port_);
  page.start_tls();
  EXPECT_EQ(page.request("GET", "/link", {},
                         "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                         "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"),
            403u);
  EXPECT_TRUE(logged("refused a page's WebSocket for agents"));
  RawPeer agent(port_);
  agent.start_tls();
  EXPECT_NO_THROW(agent.upgrade());
}

TEST_F(BoundsTest, NewNamesOfAMachineAreStoredOnlyWhenTheyDifferAndAreLimited) {
  stop();
  limits_.renames_per_machine = 3;
  start();
  RawPeer agent(port_);
  agent.start_tls();
  agent.upgrade();
  agent.send_message(Msg::Hello, 0, R"({"role":"agent"})");
  agent.send_message(Msg::Enroll, 0, R"({"name":"same"})");
  agent.read_message(Msg::LoginResult);
  const auto rename = [&](const std::string& name) {
    agent.send_message(Msg::NameUpdate, 0, R"({"name":")" + name + "\"}");
  };
  for (int i = 0; i < 5; ++i)
    rename("same");
  for (const char* name : {"first", "second", "third", "fourth", "fifth"})
    rename(name);
  EXPECT_TRUE(logged("a new name was ignored: too many in a short time"));
  wait_for_machine("third", "online");
  stop();
  EXPECT_EQ(stored("SELECT name FROM machines"), std::multiset<std::string>{"third"});
  EXPECT_EQ(stored("SELECT id FROM trail WHERE code = 'machine.renamed'").size(), 3u);
  EXPECT_EQ(log_lines_with("a new name was ignored"), 1u);
  start();
}

// Changes, inserts, removes or repeats some bytes.
std::string mutated(std::string bytes, std::mt19937& random) {
  for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
    const std::size_t at = random() % bytes.size();
    const auto byte = static_cast<char>(random());
    const unsigned how = random() % 4;
    if (how == 0) bytes[at] = byte;
    if (how == 1) bytes.insert(at, 1 + random() % 8, byte);
    if (how == 2) bytes.erase(at, 1 + random() % 8);
    if (how == 3) bytes += bytes.substr(at);
    if (bytes.empty()) bytes = "x";
  }
  return bytes;
}

class MutatedTest : public BoundsTest {
 protected:
  void send_mutated(int count, std::mt19937& random) {
    for (int i = 0; i < count; ++i) {
      RawPeer peer(port_);
      peer.start_tls();
      std::string bytes = "GET /api/me HTTP/1.1\r\nHost: localhost\r\nContent-Length: 2\r\n\r\n{}";
      if (random() % 2) {
        peer.upgrade();
        bytes = peer.message_frame(Msg::Hello, 0, R"({"role":"agent"})") +
                peer.message_frame(Msg::Login, 0, R"({"agent_id":"x","secret":"y"})");
      }
      peer.send(mutated(bytes, random));
      // Some peers leave at once, others when the relay has answered.
      peer.limit_waits(std::chrono::milliseconds(2));
      if (random() % 2) (void)peer.ended();
    }
  }
};

TEST_F(MutatedTest, NothingRemainsOfTwoThousandMalformedRequests) {
  std::mt19937 random(1);
  send_mutated(100, random);
  on_relay([&] { limits_.refused_hold = std::chrono::milliseconds(100); });
  const std::size_t before = settled_heap();
  send_mutated(2000, random);
  std::size_t remaining = 1;
  EXPECT_TRUE(eventually([&] {
    on_relay([&] { remaining = server_->connections(); });
    return remaining == 0;
  })) << remaining;
  EXPECT_LT(settled_heap(), before + (1u << 20));
}

TEST_F(BoundsTest, RightPersonDoesNotWaitForThePasswordsOfFiftyAddresses) {
  stop();
  limits_.failures_per_name = 1'000'000;
  start();
  const auto attempt = [](RawPeer& peer, const std::string& password) {
    return peer.request("POST", "/api/login", Json{{"name", "admin"}, {"password", password}}.dump());
  };
  std::atomic<bool> ended = false;
  std::atomic<int> refused = 0;
  std::vector<std::thread> attackers;
  for (int i = 0; i < 50; ++i) {
    attackers.emplace_back([&, i] {
      RawPeer peer(port_, "127.0.1." + std::to_string(1 + i));
      peer.start_tls();
      while (!ended && attempt(peer, "wrong") == 401)
        ++refused;
    });
  }
  EXPECT_TRUE(eventually([&] { return refused > 25; })) << "the account is slowed";
  RawPeer person(port_, "127.0.2.1");
  person.start_tls();
  const int before = refused;
  EXPECT_EQ(attempt(person, kPassword), 200u);
  EXPECT_LE(refused - before, 5);
  ended = true;
  for (std::thread& attacker : attackers)
    attacker.join();
}

}  // namespace
}  // namespace vlk::relay
