// An AgentClient with a real TLS peer: what the tests of the link share.
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

// What the callbacks were told, in order, one line a call.
class CallbackLog {
 public:
  AgentCallbacks callbacks();
  std::vector<std::string> lines() const;
  // Waits until the line has come `times` times in all.
  bool wait_for(const std::string& line, std::size_t times = 1) const;

 private:
  void note(std::string line);

  mutable std::mutex lock_;
  mutable std::condition_variable noted_;
  std::vector<std::string> lines_;
};

// A clock whose sleeps are recorded and end at once, until `limit` of them have been taken: the next one then
// waits for release().
class RecordedClock {
 public:
  explicit RecordedClock(std::size_t limit = ~std::size_t{0});
  ~RecordedClock();  // releases
  Clock clock();
  std::vector<std::int64_t> sleeps() const;  // milliseconds
  bool wait_for_sleeps(std::size_t count) const;
  void release();

 private:
  // Shared with the clocks given out, which may outlive this object.
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

  // A client for `server`, not started. An identity is given with `enrolled`.
  void make_client(const ScriptedServer& server, bool enrolled = true, Clock clock = steady_clock());
  // Starts a client and takes it through upgrade, hello and login.
  std::unique_ptr<ServerConnection> connect(ScriptedServer& server);

  static const TestAuthority& authority();

  AgentConfig config_;
  CallbackLog log_;
  std::unique_ptr<AgentClient> client_;
};

// With a client that is logged in from the start.
class OnlineTest : public LinkTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  ScriptedServer server_{authority()};
  std::unique_ptr<ServerConnection> peer_;
};

}  // namespace vlk::agent
