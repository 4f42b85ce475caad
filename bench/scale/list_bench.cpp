// The frames of a session while the list of machines changes: a relay with 2,000 machines, six browsers that
// show the list, and one machine of which a session is asked for or ended five times a second. The relay is
// its own process.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/storage/machines/machine_store.h"
#include "relay/storage/store.h"
#include "support/peers/raw_agent.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace {

using namespace vlk::relay;
using vantelink_test::RawAgent;
using vantelink_test::RelayProcess;
using Steady = std::chrono::steady_clock;

constexpr char kPassword[] = "correct horse battery";
constexpr int kMachines = 2'000;
constexpr int kBrowsers = 6;
constexpr int kFramesPerSecond = 60;
constexpr std::chrono::milliseconds kChangeInterval{200};
constexpr std::size_t kFrameBytes = 20'000;

// A data folder with the machines, two of which will connect.
std::string prepare(const std::string& data) {
  Store store(data + "/relay.db");
  store.add_user("admin", hash_password(kPassword));
  store.database().execute("BEGIN");
  for (int i = 0; i < kMachines; ++i) {
    const std::string number = std::to_string(i);
    MachineRecord machine{.id = "machine-" + number,
                          .name = "Machine number " + number,
                          .machine = "COMPUTER-" + number,
                          .os = "windows",
                          .secret_hash = hash_secret("secret-" + number)};
    add_machine(store.database(), machine);
  }
  store.database().execute("COMMIT");
  return data;
}

std::unique_ptr<RawAgent> connect(const RelayProcess& relay, int number) {
  auto agent = std::make_unique<RawAgent>(static_cast<unsigned short>(relay.port()));
  const Json login = {{"agent_id", "machine-" + std::to_string(number)},
                      {"secret", "secret-" + std::to_string(number)},
                      {"name", "Machine number " + std::to_string(number)}};
  agent->send(vlk::Msg::Hello, R"({"role":"agent"})");
  agent->send(vlk::Msg::Login, login.dump());
  while (agent->read().type != static_cast<std::uint8_t>(vlk::Msg::LoginResult)) {
  }
  return agent;
}

std::unique_ptr<Browser> browse(const RelayProcess& relay, const std::string& cookie) {
  auto browser = std::make_unique<Browser>(static_cast<unsigned short>(relay.port()));
  unsigned status = 0;
  if (!browser->open_console(cookie, status)) throw std::runtime_error("the relay refused the browser");
  browser->read_machines();
  return browser;
}

// The browsers that only show the list. Each reads on a thread of its own.
class Audience {
 public:
  Audience(const RelayProcess& relay, const std::string& cookie, int count) {
    for (int i = 0; i < count; ++i) {
      browsers_.push_back(browse(relay, cookie));
      threads_.emplace_back([this, i] {
        try {
          for (;;)
            bytes_ += browsers_[static_cast<std::size_t>(i)]->read_message().bytes.size();
        } catch (const std::exception&) {
          // The relay has ended.
        }
      });
    }
  }
  ~Audience() {
    for (std::thread& thread : threads_)
      thread.join();
  }
  Audience(const Audience&) = delete;
  Audience& operator=(const Audience&) = delete;

  [[nodiscard]] std::size_t bytes() const { return bytes_; }

 private:
  std::vector<std::unique_ptr<Browser>> browsers_;
  std::vector<std::thread> threads_;
  std::atomic<std::size_t> bytes_ = 0;
};

// Asks for sessions with a machine and ends them, until the time is over. Returns the bytes of the lists that
// the browser got meanwhile.
std::size_t change_machine(Browser& browser, int changes) {
  std::size_t list_bytes = 0;
  auto next = Steady::now();
  for (int i = 0; i < changes; i += 2) {
    std::this_thread::sleep_until(next += kChangeInterval);
    browser.send({{"type", "open"}, {"agent", "machine-1"}});
    Json answer = Json::object();
    while (answer.value("type", "") != "session" || answer.value("state", "") != "waiting") {
      const Browser::Message message = browser.read_message();
      answer = Json::parse(message.bytes.begin(), message.bytes.end());
      if (answer.value("type", "") == "agents-changed") list_bytes += message.bytes.size();
    }
    std::this_thread::sleep_until(next += kChangeInterval);
    browser.send({{"type", "close"}, {"session", answer["session"]}});
  }
  return list_bytes;
}

// Sends frames that begin with the time.
void send_frames(RawAgent& sender, std::uint32_t session, std::int64_t frames) {
  std::vector<unsigned char> payload(kFrameBytes, 'x');
  auto next = Steady::now();
  for (std::int64_t i = 0; i < frames; ++i) {
    std::this_thread::sleep_until(next += std::chrono::microseconds(1'000'000 / kFramesPerSecond));
    const std::int64_t now = Steady::now().time_since_epoch().count();
    std::memcpy(payload.data(), &now, sizeof now);
    const auto bytes =
        vlk::encode_envelope(vlk::Msg::StreamFrame, session, payload.data(), payload.size(), 0);
    sender.send_bytes({bytes.begin(), bytes.end()});
  }
}

// The milliseconds that each frame took from the sender to the browser.
std::vector<double> receive_frames(Browser& browser, std::int64_t frames, std::size_t& list_bytes) {
  std::vector<double> delays;
  while (delays.size() < static_cast<std::size_t>(frames)) {
    const Browser::Message message = browser.read_message();
    if (message.text) list_bytes += message.bytes.size();
    if (message.text || message.bytes.size() < kFrameBytes) continue;
    std::int64_t sent = 0;
    std::memcpy(&sent, message.bytes.data() + vlk::kEnvelopeHeaderSize, sizeof sent);
    const Steady::duration delay(Steady::now().time_since_epoch().count() - sent);
    delays.push_back(std::chrono::duration<double, std::milli>(delay).count());
  }
  return delays;
}

void FramesBesideAChangingList(benchmark::State& state) {
  start_sodium();
  const vantelink_test::TempFolder folder;
  auto relay = std::make_unique<RelayProcess>(prepare(folder.path()), std::vector<std::string>{});
  const std::string cookie =
      Browser(static_cast<unsigned short>(relay->port()))
          .request("POST", "/api/login", Json{{"name", "admin"}, {"password", kPassword}}.dump())
          .cookie;
  const auto sender = connect(*relay, 0), changing = connect(*relay, 1);
  const auto browser = browse(*relay, cookie), visitor = browse(*relay, cookie);
  browser->send({{"type", "open"}, {"agent", "machine-0"}});
  vlk::Envelope request = sender->read();
  while (request.type != static_cast<std::uint8_t>(vlk::Msg::SessionRequest))
    request = sender->read();
  const auto accept =
      vlk::encode_envelope(vlk::Msg::SessionAccept, request.session_id,
                           reinterpret_cast<const unsigned char*>("{}"), 2, vlk::kJsonPayload);
  sender->send_bytes({accept.begin(), accept.end()});
  browser->accepted_session();

  std::vector<double> delays;
  {
    const Audience audience(*relay, cookie, kBrowsers - 2);
    const std::size_t before = audience.bytes();
    std::size_t list_bytes = 0;
    const auto start = Steady::now();
    for (auto step : state) {
      constexpr int kSeconds = 10;
      constexpr std::int64_t kFrames = kSeconds * kFramesPerSecond;
      std::size_t visitor_bytes = 0;
      std::thread changes([&] { visitor_bytes = change_machine(*visitor, kSeconds * 5); });
      std::thread frames([&] { send_frames(*sender, request.session_id, kFrames); });
      const auto some = receive_frames(*browser, kFrames, list_bytes);
      frames.join();
      changes.join();
      list_bytes += visitor_bytes;
      delays.insert(delays.end(), some.begin(), some.end());
    }
    const double seconds = std::chrono::duration<double>(Steady::now() - start).count();
    state.counters["list_KiB_per_s"] =
        static_cast<double>(audience.bytes() - before + list_bytes) / 1024 / seconds;
    relay.reset();
  }
  std::ranges::sort(delays);
  state.counters["p50_ms"] = delays[delays.size() / 2];
  state.counters["p99_ms"] = delays[delays.size() * 99 / 100];
  state.counters["max_ms"] = delays.back();
}

BENCHMARK(FramesBesideAChangingList)->UseRealTime()->Unit(benchmark::kSecond)->Iterations(2);

}  // namespace
