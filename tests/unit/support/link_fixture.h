// Fixtures with an AgentClient and a real TLS peer.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "client/agent_client.h"
#include "fakes/fakes.h"
#include "support/peers/scripted_server.h"

namespace vlk::agent {

using vantelink_test::kPatience;
using vantelink_test::Milliseconds;
using vantelink_test::ScriptedServer;
using vantelink_test::ServerConnection;
using vantelink_test::TestAuthority;
using vantelink_test::text_of;

// Records the calls of the callbacks in order, one line per call.
class CallbackLog {
 public:
  AgentCallbacks callbacks();
  std::vector<std::string> lines() const;
  void clear();
  // Waits until the line has been recorded `times` times in total. Returns false if that takes too long.
  bool wait_for(const std::string& line, std::size_t times = 1) const;

 private:
  void note(std::string line);

  mutable std::mutex lock_;
  mutable std::condition_variable noted_;
  std::vector<std::string> lines_;
};

// A clock that records its sleeps. The first `limit` sleeps end at once; the next one waits for release().
class RecordedClock {
 public:
  explicit RecordedClock(std::size_t limit = ~std::size_t{0});
  ~RecordedClock();  // lets a waiting sleep end
  Clock clock();
  std::vector<std::int64_t> sleeps() const;  // milliseconds
  bool wait_for_sleeps(std::size_t count) const;
  void release();

 private:
  // Shared with the returned clocks, which may exist longer than this object.
  struct State {
    std::mutex lock;
    std::condition_variable changed;
    std::vector<std::int64_t> sleeps;
    std::size_t limit;
    std::int64_t time = 0;
  };
  std::shared_ptr<State> state_;
};

class LinkTest : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Creates a client for `server` without starting it. With `enrolled` the client has an identity.
  void make_client(const ScriptedServer& server, bool enrolled = true, Clock clock = steady_clock());
  // Creates and starts a client. Returns the server's side of the connection after upgrade, hello and log-in.
  std::unique_ptr<ServerConnection> connect(ScriptedServer& server);

  static const TestAuthority& authority();

  AgentConfig config_;
  CallbackLog log_;
  std::unique_ptr<AgentClient> client_;
};

// Starts each test with a client that is logged in.
class OnlineTest : public LinkTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  ScriptedServer server_{authority()};
  std::unique_ptr<ServerConnection> peer_;
};

}  // namespace vlk::agent
