// A relay in this process, a browser, and the agent's own client: what the relay's tests share.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "core/agent_client.h"
#include "relay/browser.h"
#include "relay/certificate.h"
#include "relay/limits.h"
#include "relay/log.h"
#include "relay/store.h"

namespace vlk::relay {

class Server;

class RelayTest : public testing::Test {
 protected:
  RelayTest();
  ~RelayTest() override;
  void SetUp() override;
  void TearDown() override;

  void start();  // with `limits_`
  void stop();

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
