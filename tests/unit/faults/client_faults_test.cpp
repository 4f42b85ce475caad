// A whole client with each call below it going wrong once, in a connection with a session.
#include <algorithm>

#include <gtest/gtest.h>

#include "unit/faults/failing_calls_seam.h"
#include "unit/support/link_fixture.h"
#include "unit/support/threads.h"

namespace vlk::agent {
namespace {

using vantelink_test::CallFault;
using vantelink_test::CallGroup;
using vantelink_test::descriptors;
using vantelink_test::FailingCalls;
using vantelink_test::FailNth;
using vantelink_test::threads;
using Lines = std::vector<std::string>;

// What the callbacks report of a connection with a session, in order.
const Lines kConnection = {"status 1 0", "status 1 0", "status 2 0", "notice Connected to Maravek",
                           "status 3 1"};

struct Fault {
  CallGroup group;
  CallFault fault;
};

class ClientFaultsTest : public LinkTest, public testing::WithParamInterface<Fault> {
 protected:
  // A clock on which the pauses between connections, which are longer than those between frames, are recorded
  // and end at once.
  class PauseClock {
   public:
    Clock clock() {
      return {[this] { return last_time() = steady_.now(); },
              [this](std::int64_t deadline) {
                const std::int64_t pause = (deadline - last_time()) / 1000000;
                if (pause < kLongestFramePause) return steady_.sleep_until(deadline);
                const std::lock_guard<std::mutex> hold(lock_);
                pauses_.push_back(pause);
              }};
    }
    std::vector<std::int64_t> pauses() const {
      const std::lock_guard<std::mutex> hold(lock_);
      return pauses_;
    }

   private:
    static constexpr std::int64_t kLongestFramePause = 300;  // milliseconds

    // What the calling thread has read last, from which it computes its deadlines.
    static std::int64_t& last_time() {
      thread_local std::int64_t time = 0;
      return time;
    }

    const Clock steady_ = steady_clock();
    mutable std::mutex lock_;
    std::vector<std::int64_t> pauses_;  // milliseconds
  };

  void SetUp() override {
    LinkTest::SetUp();
    vantelink_fakes::script().width = 8;
  }

  // Leads a connection through log-in, session, stream and answers. Throws std::runtime_error if the client
  // ends it before.
  void serve(ServerConnection& peer) {
    if (!peer.handshake()) throw std::runtime_error("the handshake failed");
    peer.upgrade();
    peer.read_until(Msg::Login);
    peer.send_envelope(Msg::LoginResult, 0, "");
    peer.send_envelope(Msg::StreamStart, 5, R"({"max_fps":100})");
    peer.read_until(Msg::StreamFrame);
    peer.send_frame(kWsPing, "ping");
    while (peer.read_frame().opcode != kWsPong) {
    }
    peer.settle();
  }

  // Serves the client's connections until one is complete and lasts, and returns it.
  std::unique_ptr<ServerConnection> serve_until_complete(ScriptedServer& server, FailingCalls& calls) {
    for (int ended = 0;; ++ended) {
      auto peer = server.accept();
      try {
        serve(*peer);
        calls.stop();
        const std::string failed = calls.failed();
        if (ended > 0 || failed == "getaddrinfo" || !ends_connection(failed)) return peer;
        // The call that failed was made after the last answer.
        EXPECT_TRUE(peer->wait_closed());
      } catch (const std::runtime_error&) {
        if (ended > 0) throw;
      }
    }
  }

  // Checks what was reported and how long the client paused, when the second or the only connection is
  // complete.
  void check(const std::vector<std::int64_t>& pauses, const std::string& failed) {
    Lines lines = log_.lines();
    const auto end = std::find(lines.begin(), lines.end(), "status 0 0");
    if (end == lines.end()) {
      EXPECT_EQ(lines, kConnection) << failed;
      EXPECT_EQ(pauses, std::vector<std::int64_t>()) << failed;
      return;
    }
    const Lines first(lines.begin(), end), second(end + 1, lines.end());
    EXPECT_GE(first.size(), 1u);
    EXPECT_LE(first.size(), kConnection.size());
    EXPECT_TRUE(std::equal(first.begin(), first.end(), kConnection.begin())) << failed;
    EXPECT_EQ(second, kConnection) << failed;
    EXPECT_EQ(pauses, std::vector<std::int64_t>{500}) << failed;
    EXPECT_EQ(vantelink_fakes::count("SetClipboardSessionActive false"), first.size() > 1) << failed;
  }

  // Whether the fault of this call ends the attempt or the connection; no call has failed if `failed` is
  // empty.
  static bool ends_connection(const std::string& failed) {
    if (GetParam().fault == CallFault::Interrupted || GetParam().fault == CallFault::Short) return false;
    return failed == "getaddrinfo" || failed == "send" || failed == "recv";
  }

  // One client whose connection the fault may end.
  void run(FailNth& fail, int& lost) {
    vantelink_fakes::reset();
    vantelink_fakes::script().roots = {authority().der()};
    log_.clear();
    ScriptedServer server(authority());
    PauseClock clock;
    FailingCalls calls(GetParam().group, GetParam().fault, fail);
    make_client(server, true, clock.clock());
    client_->start();
    const auto peer = serve_until_complete(server, calls);
    const std::string failed = calls.failed_with_number();
    check(clock.pauses(), failed);
    const Lines lines = log_.lines();
    const bool ended = std::find(lines.begin(), lines.end(), "status 0 0") != lines.end();
    EXPECT_EQ(ended, ends_connection(calls.failed())) << failed;
    lost += static_cast<int>(ended);
    client_.reset();  // before the peer, so that the client does not connect again
  }
};

TEST_P(ClientFaultsTest, LostConnectionIsReportedPausedAndFollowedByALogIn) {
  FailNth none;
  int lost = 0;
  run(none, lost);
  const std::size_t open = descriptors(), running = threads();
  const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
    run(fail, lost);
    EXPECT_EQ(descriptors(), open);
    EXPECT_EQ(threads(), running);
  });
  const CallFault fault = GetParam().fault;
  const bool ends =
      GetParam().group == CallGroup::Network && fault != CallFault::Interrupted && fault != CallFault::Short;
  EXPECT_EQ(lost > 3, ends) << lost;
  std::printf("%d connections were lost; ", lost);
  vantelink_test::report_failed_calls(runs);
}

INSTANTIATE_TEST_SUITE_P(Faults, ClientFaultsTest,
                         testing::Values(Fault{CallGroup::Network, CallFault::Error},
                                         Fault{CallGroup::Network, CallFault::TryAgain},
                                         Fault{CallGroup::Network, CallFault::Interrupted},
                                         Fault{CallGroup::Network, CallFault::Short},
                                         Fault{CallGroup::Network, CallFault::Ended},
                                         Fault{CallGroup::Random, CallFault::Error}));

}  // namespace
}  // namespace vlk::agent
