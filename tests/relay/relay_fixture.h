// A test fixture that runs a relay in the test's process and connects browsers and the agent's client to it.
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
#include "relay/metrics/operators_port.h"
#include "relay/net/source/proxies.h"
#include "relay/net/tls/certificate.h"
#include "relay/session/cluster/cluster.h"
#include "relay/storage/store.h"
#include "support/waiting.h"

namespace vlk::relay {

class OwnCertificate;
class Server;

using vantelink_test::eventually;

// Bytes allocated on the heap of this process, which runs the relay, the agents and the browsers.
std::size_t heap_bytes();
// True if this process has the file open.
bool is_open(const std::filesystem::path& path);

class RelayTest : public testing::Test {
 protected:
  RelayTest();
  ~RelayTest() override;
  void SetUp() override;
  void TearDown() override;

  void start();  // starts the relay with `limits_`
  void stop();
  // Sets `certificate_` to a leaf for localhost of an authority that agents trust.
  virtual void make_certificate();
  // Runs `work` on the relay's thread and waits until it is done. `work` changes the relay's limits, for
  // instance.
  void on_relay(const std::function<void()>& work);

  // Keeps the relay's database busy until the result is destroyed, with this number of jobs in its queue.
  [[nodiscard]] std::shared_ptr<void> hold_database(std::size_t jobs);

  // Logs in as "admin" and returns the log-in's cookie, or an empty string if it was refused.
  std::string log_in();
  // Logs a browser in and opens its WebSocket.
  std::unique_ptr<Browser> console(int receive_buffer = 0, std::string cookie = {});
  // Connects an agent with the display name `name` and waits until its machine is online.
  std::unique_ptr<agent::AgentClient> connect_agent(const std::string& name, bool unattended = true);
  // Waits until the machine with this name is in this state, and returns its entry in the list of machines.
  Json wait_for_machine(const std::string& name, const std::string& state);
  // Waits until the relay's log contains the text. Returns false at the timeout of eventually().
  bool logged(const std::string& text);
  // The values in the first column of the query's result, after what the relay has to write is written.
  std::multiset<std::string> stored(const char* query);
  // Waits until the heap has stopped growing while the relay's thread was working, and returns the heap's
  // highest size in bytes.
  std::size_t settled_heap();

  std::filesystem::path folder_;
  Limits limits_;
  CertificateFiles certificate_;
  std::shared_ptr<OwnCertificate> own_;  // none, unless make_certificate() sets it
  // The options with these names, for the next start().
  std::string update_key_;
  std::string address_ = "127.0.0.1";
  std::vector<Network> trusted_proxies_;
  bool proxy_protocol_ = false;
  std::string proxy_header_;
  std::optional<OperatorsAddress> operators_;
  Cluster::Settings cluster_;
  std::string failure_;  // what ended the relay
  std::mutex log_lock_;
  std::string log_text_;
  std::unique_ptr<Log> log_;
  std::unique_ptr<Server> server_;
  std::thread thread_;
  unsigned short port_ = 0;
};

inline constexpr char kPassword[] = "correct horse battery";

}  // namespace vlk::relay
