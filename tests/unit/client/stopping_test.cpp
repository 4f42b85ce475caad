// stop() in each phase of a connection.
#include <functional>
#include <future>
#include <mutex>

#include <gtest/gtest.h>

#include "unit/client/system_calls_seam.h"
#include "unit/support/link_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_test::ReplacedSystemCalls;
using vantelink_test::SystemCalls;
using Lines = std::vector<std::string>;

// A system call that waits until the test ends it.
class PausedCall {
 public:
  // The replacement of the call. Later calls get the same result.
  std::function<bool()> function() {
    return [this] {
      std::call_once(once_, [this] { entered_.set_value(); });
      return result_.get();
    };
  }
  [[nodiscard]] bool wait_until_entered() {
    return entered_.get_future().wait_for(kPatience) == std::future_status::ready;
  }
  void end(bool result) { promise_.set_value(result); }

 private:
  std::once_flag once_;
  std::promise<void> entered_;
  std::promise<bool> promise_;
  std::shared_future<bool> result_ = promise_.get_future().share();
};

class StoppingTest : public LinkTest {
 protected:
  // Starts the client, waits until it is in the paused call, and calls stop() on another thread.
  void stop_in(PausedCall& call) {
    client_->start();
    ASSERT_TRUE(call.wait_until_entered());
    stopped_ = std::async(std::launch::async, [this] { client_->stop(); });
    EXPECT_EQ(stopped_.wait_for(Milliseconds(100)), std::future_status::timeout)
        << "stop() does not wait for the system's call";
  }
  using Step = decltype(&SystemCalls::resolve);
  // Pauses the system call of each step in turn in the first attempt of a new client, calls stop() meanwhile,
  // and then the test with the paused call.
  void stop_in_each_step(const std::function<void(PausedCall&, ScriptedServer&)>& test) {
    for (const Step step : {&SystemCalls::resolve, &SystemCalls::connect}) {
      ScriptedServer server(authority());
      log_.clear();
      PausedCall call;
      SystemCalls calls;
      calls.*step = call.function();
      const ReplacedSystemCalls replaced(calls);
      make_client(server);
      stop_in(call);
      test(call, server);
      client_.reset();
    }
  }
  [[nodiscard]] bool stops() { return stopped_.wait_for(kPatience) == std::future_status::ready; }

  std::future<void> stopped_;
};

TEST_F(StoppingTest, StoppingDuringAResolutionOrAConnectReturnsWhenThatStepHasFailed) {
  stop_in_each_step([&](PausedCall& call, ScriptedServer&) {
    call.end(false);
    EXPECT_TRUE(stops());
    EXPECT_EQ(log_.lines(), (Lines{"status 1 0", "status 0 0"}));
  });
}

TEST_F(StoppingTest, AttemptThatSucceedsAfterTheStopLogsInAndReadsNothing) {
  stop_in_each_step([&](PausedCall& call, ScriptedServer& server) {
    call.end(true);
    const auto peer = server.accept();
    ASSERT_TRUE(peer->handshake());
    const std::vector<std::uint8_t> envelope = encode_envelope(Msg::LoginResult, 0, nullptr, 0, 1);
    const std::vector<std::uint8_t> frame = encode_frame(kWsBinary, envelope.data(), envelope.size(), false);
    peer->upgrade({reinterpret_cast<const char*>(frame.data()), frame.size()});
    peer->read_until(Msg::Login);
    EXPECT_TRUE(peer->wait_closed());
    peer->abort();  // lets a client end that has begun to read
    EXPECT_TRUE(stops());
    EXPECT_EQ(log_.lines(), (Lines{"status 1 0", "status 1 0", "status 0 0"}));
  });
}

TEST_F(StoppingTest, StoppingTheClientEndsTheConnectionInEveryPhaseWithoutTheServersHelp) {
  enum Phase { kHandshake, kBeforeUpgrade, kInUpgrade, kBeforeLogin, kOnline, kStreaming, kPhases };
  for (int phase = 0; phase < kPhases; ++phase) {
    ScriptedServer server(authority());
    log_.clear();
    make_client(server);
    client_->start();
    auto peer = server.accept();
    // With its first bytes, the client waits for the server's part of the handshake.
    ASSERT_TRUE(peer->has_input(kPatience));
    if (phase >= kBeforeUpgrade) {
      ASSERT_TRUE(peer->handshake());
    }
    if (phase == kInUpgrade) {
      peer->read_request();
      peer->send("HTTP/1.1 101 Sw");
    }
    if (phase >= kBeforeLogin) peer->upgrade();
    if (phase >= kOnline) peer->read_until(Msg::Login);
    if (phase == kStreaming) {
      peer->send_envelope(Msg::StreamStart, 1, R"({"max_fps":100})");
      peer->read_until(Msg::StreamFrame);
    }
    stopped_ = std::async(std::launch::async, [this] { client_->stop(); });
    EXPECT_TRUE(stops()) << phase;
    peer->abort();  // lets a client end that stop() did not end
    stopped_.wait();
    client_.reset();
    EXPECT_EQ(log_.lines().back(), "status 0 0") << phase;
  }
}

}  // namespace
}  // namespace vlk::agent
