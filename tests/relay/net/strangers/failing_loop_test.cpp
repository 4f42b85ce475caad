// A relay whose accepting of connections or whose checks of time limits fail does not go on without them.
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <stdexcept>
#include <utility>

#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

constexpr char kNotAccepted[] = "cannot accept a connection";

class FailingLoopTest : public RelayTest {
 protected:
  void SetUp() override {
    RelayTest::SetUp();
    ::getrlimit(RLIMIT_NOFILE, &usual_);
  }

  // Restarts the relay with a log that calls `act` once, before a line with this text is written.
  void at_line(const std::string& text, std::function<void()> act) {
    stop();
    const auto sink = [this, text, act = std::move(act)](std::string_view line) mutable {
      if (act && line.find(text) != std::string_view::npos) std::exchange(act, nullptr)();
      const std::lock_guard<std::mutex> guard(log_lock_);
      log_text_.append(line).append("\n");
    };
    log_ = std::make_unique<Log>(sink, Log::Rate{.lines = 1, .window = std::chrono::seconds(1)});
    start();
  }

  // A socket that has connected to the relay while no descriptor was free to accept the connection.
  int connect_without_descriptors() {
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in relay{};
    relay.sin_family = AF_INET;
    relay.sin_port = htons(port_);
    relay.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const rlimit none{0, usual_.rlim_max};
    ::setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(::connect(client, reinterpret_cast<const sockaddr*>(&relay), sizeof relay), 0);
    return client;
  }
  void free_descriptors() const { ::setrlimit(RLIMIT_NOFILE, &usual_); }

  void expect_end() {
    ASSERT_TRUE(logged("the relay ends: the log is full"));
    thread_.join();
    server_.reset();
    EXPECT_EQ(std::exchange(failure_, {}), "the log is full");
  }

  rlimit usual_{};
};

TEST_F(FailingLoopTest, RelayEndsWhenTheChecksOfTimeLimitsFail) {
  at_line("... and 1 more", [] { throw std::runtime_error("the log is full"); });
  for (int i = 0; i < 2; ++i)
    RawPeer(port_).send_plain("no handshake");
  expect_end();
}

TEST_F(FailingLoopTest, RelayEndsWhenAcceptingFails) {
  at_line(kNotAccepted, [this] {
    free_descriptors();
    throw std::runtime_error("the log is full");
  });
  const int client = connect_without_descriptors();
  expect_end();
  ::close(client);
}

TEST_F(FailingLoopTest, RelayWithoutFreeDescriptorsLogsThisAndAcceptsConnectionsLater) {
  at_line(kNotAccepted, [this] { free_descriptors(); });
  const int client = connect_without_descriptors();
  EXPECT_TRUE(logged(kNotAccepted));
  RawPeer peer(port_);
  EXPECT_NO_THROW(peer.start_tls());
  ::close(client);
}

}  // namespace
}  // namespace vlk::relay
