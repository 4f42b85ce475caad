// A relay in this process, a browser, and the agent's own client: what the relay's tests share.
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

// Whether the condition comes true within half a minute.
template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  return true;
}

// What this process, which is all of the relay, agent and browser, has on its heap.
std::size_t heap_bytes();
// Whether it has the file open.
bool is_open(const std::filesystem::path& path);

class RelayTest : public testing::Test {
 protected:
  RelayTest();
  ~RelayTest() override;
  void SetUp() override;
  void TearDown() override;

  void start();  // with `limits_`
  void stop();
  // Does `work` on the relay's thread, for instance on its limits, and waits until it is done.
  void on_relay(const std::function<void()>& work);

  // The cookie of a login as "admin".
  std::string log_in();
  // A logged-in browser with its console open.
  std::unique_ptr<Browser> console();
  // An agent of that name that trusts the relay; its settings after it came online.
  std::unique_ptr<agent::AgentClient> connect_agent(const std::string& name, bool unattended = true);
  // The list's entry of the machine with that name, once it is in that state.
  Json wait_for_machine(const std::string& name, const std::string& state);
  // Whether a line of the log holds the text, now or soon.
  bool logged(const std::string& text);
  // The first column of the query's rows.
  std::multiset<std::string> stored(const char* query);
  // The heap's height once it has not grown while the relay's thread went round many times.
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
