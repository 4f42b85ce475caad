// Delays of pictures on their way through the relay's process while its database is slow or busy: while
// another process holds the database's lock for two seconds, and while a hundred machines enrol.
#include <algorithm>
#include <chrono>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/links/raw_session.h"
#include "relay/storage/store.h"
#include "support/peers/raw_agent.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace {

using namespace vlk;
using namespace vlk::relay;
using Clock = std::chrono::steady_clock;

constexpr char kPassword[] = "correct horse battery";
constexpr std::chrono::milliseconds kPictureInterval{10};
constexpr int kPictures = 300;
constexpr int kEnrolments = 100;
constexpr int kEnrolmentsPerSource = 25;

// A relay with one session, through which pictures pass.
class Scene {
 public:
  Scene() : relay_(prepared(), {}), browser_(port()) {
    unsigned status = 0;
    const std::string login = Json{{"name", "admin"}, {"password", kPassword}}.dump();
    browser_.open_console(Browser(port()).request("POST", "/api/login", login).cookie, status);
    session_.emplace(port(), browser_);
  }

  [[nodiscard]] unsigned short port() const { return static_cast<unsigned short>(relay_.port()); }
  [[nodiscard]] std::string database() const { return folder_.path() / "data/relay.db"; }

  // Sends the pictures and returns the delay of each in ms, in ascending order.
  std::vector<double> delays() {
    std::vector<double> result;
    std::thread reader([&] {
      for (int i = 0; i < kPictures; ++i) {
        while (browser_.read_binary().type != Msg::Thumbnail) {
        }
        const std::lock_guard<std::mutex> guard(lock_);
        result.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent_.front()).count());
        sent_.pop_front();
      }
    });
    const std::string picture(20'000, 'p');
    auto next = Clock::now();
    for (int i = 0; i < kPictures; ++i) {
      {
        const std::lock_guard<std::mutex> guard(lock_);
        sent_.push_back(Clock::now());
      }
      session_->send(Msg::Thumbnail, picture);
      std::this_thread::sleep_until(next += kPictureInterval);
    }
    reader.join();
    std::ranges::sort(result);
    return result;
  }

 private:
  std::string prepared() {
    start_sodium();
    const std::filesystem::path data = folder_.path() / "data";
    std::filesystem::create_directories(data);
    Store store(data / "relay.db");
    store.add_user("admin", hash_password(kPassword));
    store.open_enrolment(60);
    return data;
  }

  vantelink_test::TempFolder folder_;
  vantelink_test::RelayProcess relay_;
  Browser browser_;
  std::optional<RawSession> session_;
  std::mutex lock_;
  std::deque<Clock::time_point> sent_;
};

// Sends pictures while `meanwhile` runs on another thread.
void measure(benchmark::State& state, const std::function<void(Scene&)>& meanwhile) {
  Scene scene;
  for (auto step : state) {
    std::thread other([&] { meanwhile(scene); });
    const std::vector<double> delays = scene.delays();
    other.join();
    state.counters["p50_ms"] = delays[delays.size() / 2];
    state.counters["p99_ms"] = delays[delays.size() * 99 / 100];
    state.counters["max_ms"] = delays.back();
  }
}

void PicturesAlone(benchmark::State& state) {
  measure(state, [](Scene&) {});
}

// A log-in waits for the lock in the meantime, as anybody's would.
void PicturesWhileTheDatabaseIsLocked(benchmark::State& state) {
  measure(state, [](Scene& scene) {
    Database database(scene.database());
    database.execute("BEGIN IMMEDIATE");
    vantelink_test::RawAgent agent(scene.port());
    agent.send(Msg::Hello, R"({"role":"agent"})");
    agent.send(Msg::Enroll, R"({"name":"waits"})");
    std::this_thread::sleep_for(std::chrono::seconds(2));
    database.execute("COMMIT");
    (void)agent.read();
  });
}

void PicturesWhileMachinesEnrol(benchmark::State& state) {
  measure(state, [](Scene& scene) {
    std::vector<std::unique_ptr<vantelink_test::RawAgent>> agents;
    for (int i = 0; i < kEnrolments; ++i) {
      const std::string source = "127.0.0." + std::to_string(2 + i / kEnrolmentsPerSource);
      agents.push_back(std::make_unique<vantelink_test::RawAgent>(scene.port(), source.c_str()));
      agents.back()->send(Msg::Hello, R"({"role":"agent"})");
    }
    for (const auto& agent : agents)
      agent->send(Msg::Enroll, R"({"name":"n","machine_name":"m","os":"windows","hw_id":"x"})");
    for (const auto& agent : agents)
      (void)agent->read();
  });
}

BENCHMARK(PicturesAlone)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(PicturesWhileTheDatabaseIsLocked)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(PicturesWhileMachinesEnrol)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
