// A test fixture with a relay in this process, browsers, and the agent's client.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "client/agent_client.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/browser.h"
#include "relay/net/certificate.h"
#include "relay/storage/store.h"

namespace vlk::relay {

class Server;

// True if the condition becomes true within 30 seconds.
template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// Bytes on the heap of this process, which is relay, agent and browser at once.
std::size_t heap_bytes();
// True if this process has the file open.
bool is_open(const std::filesystem::path& path);

class RelayTest : public testing::Test {
 protected:
  RelayTest();
  ~RelayTest() override;
  void SetUp() override;
  void TearDown() override;

  void start();  // with `limits_`
  void stop();
  // Runs `work` on the relay's thread, for instance a change of its limits, and waits until it is done.
  void on_relay(const std::function<void()>& work);

  // Logs in as "admin"; the log-in's cookie, empty if refused.
  std::string log_in();
  // A browser that is logged in, with its WebSocket open.
  std::unique_ptr<Browser> console();
  // An agent of that name that trusts the relay and is online.
  std::unique_ptr<agent::AgentClient> connect_agent(const std::string& name, bool unattended = true);
  // Waits until the machine with that name is in that state; its entry in the list.
  Json wait_for_machine(const std::string& name, const std::string& state);
  // True if a line of the log contains the text, now or within 30 seconds.
  bool logged(const std::string& text);
  // The first column of the rows of a database query.
  std::multiset<std::string> stored(const char* query);
  // Waits until the heap has not grown during many turns of the relay's thread; its highest size in bytes.
  std::size_t settled_heap();

  std::filesystem::path folder_;
  Limits limits_;
  CertificateFiles certificate_;
  std::mutex log_lock_;
  std::string log_text_;
  std::unique_ptr<Log> log_;
  std::unique_ptr<Store> store_;
  std::unique_ptr<Server> server_;
  std::thread thread_;
  unsigned short port_ = 0;
};

inline constexpr char kPassword[] = "correct horse battery";

}  // namespace vlk::relay
