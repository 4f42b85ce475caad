// One machine's stream to many viewers: the age of its pictures at viewers that keep up, first alone, then
// beside one viewer that reads nothing and one whose line has 0.5 Mbit/s; and the time until somebody who
// joins or comes back has the present picture. The relay is its own process.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/links/raw_session.h"
#include "relay/storage/store.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace {

using namespace vlk;
using namespace vlk::relay;
using Steady = std::chrono::steady_clock;

constexpr char kPassword[] = "correct horse battery";
constexpr std::size_t kPictureBytes = 10 * 1024;
constexpr int kPicturesPerSecond = 30;
constexpr int kSeconds = 15;
constexpr int kGoodViewers = 48;
constexpr double kSlowBytesPerSecond = 500'000.0 / 8;
constexpr int kReceiveBuffer = 16 * 1024;

// The processor time of a process in seconds, and its memory in KiB.
double processor_seconds(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
  std::string word;
  long ticks = 0;
  // Fields 14 and 15 of proc(5): the ticks in user and in kernel mode.
  for (int field = 1; field <= 15 && file >> word; ++field) {
    if (field >= 14) ticks += std::stol(word);
  }
  return static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

double memory_kib(pid_t pid) {
  std::ifstream file("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; file >> word;) {
    if (word == "VmRSS:" && file >> word) return std::stod(word);
  }
  return 0;
}

std::string make_picture(bool key) {
  const std::int64_t now = Steady::now().time_since_epoch().count();
  std::string picture(sizeof now, '\0');
  std::memcpy(picture.data(), &now, sizeof now);
  picture += std::string("\0\0\1", 3) + (key ? '\x65' : '\x41');
  picture.resize(kPictureBytes, 'x');
  return picture;
}

// The relay, the machine, and the people who watch it.
class Scene {
 public:
  Scene() : relay_(prepared(), {}) {
    viewers_.push_back(log_in(0));
    first_cookie_ = cookie_;
    session_.emplace(port(), *viewers_.front());
    id_ = Json::parse(
        viewers_.front()->request("GET", "/api/agents", "", cookie_).body.dump())["agents"][0]["id"];
    viewers_.front()->send_envelope(Msg::StreamStart, session_->number(), R"({"max_fps":30})");
    session_->read(Msg::StreamStart);
  }

  // Adds a viewer, whose session the machine accepts.
  Browser& add(int receive_buffer = 0) {
    viewers_.push_back(log_in(static_cast<int>(viewers_.size()), receive_buffer));
    Browser& viewer = *viewers_.back();
    viewer.send({{"type", "open"}, {"agent", id_}});
    const std::uint32_t number = session_->read(Msg::SessionRequest).session_id;
    const auto accept = encode_envelope(Msg::SessionAccept, number, nullptr, 0, 0);
    session_->agent().send_bytes({accept.begin(), accept.end()});
    last_number_ = viewer.accepted_session();
    return viewer;
  }
  void send_pictures() {
    auto next = Steady::now();
    for (int i = 0; i < kSeconds * kPicturesPerSecond; ++i) {
      std::this_thread::sleep_until(next += std::chrono::microseconds(1'000'000 / kPicturesPerSecond));
      session_->send(Msg::StreamFrame, make_picture(i % kPicturesPerSecond == 0));
    }
    // Ends the reading of each viewer.
    session_->send(Msg::StreamFrame, std::string(8, '\0'));
  }
  // Sends a group of pictures, the last of which the relay gives to everybody who joins.
  void send_group() {
    session_->send(Msg::StreamConfig, R"({"codec":"h264","w":1920,"h":1080,"monitor_id":0})");
    for (int i = 0; i < kPicturesPerSecond; ++i)
      session_->send(Msg::StreamFrame, make_picture(i == 0));
  }
  [[nodiscard]] std::uint32_t number() const { return session_->number(); }
  [[nodiscard]] std::uint32_t last_number() const {
    return last_number_;
  }  // of the viewer that was added last
  // Replaces the connection of the first viewer, whose session the relay holds.
  Browser& reconnect() {
    unsigned status = 0;
    auto browser = std::make_unique<Browser>(port());
    browser->open_console(first_cookie_, status);
    browser->send({{"type", "resume"}, {"session", number()}});
    viewers_.front() = std::move(browser);
    return *viewers_.front();
  }
  Browser& viewer(std::size_t index) { return *viewers_.at(index); }
  [[nodiscard]] pid_t relay() const { return relay_.pid(); }

 private:
  [[nodiscard]] unsigned short port() const { return static_cast<unsigned short>(relay_.port()); }
  std::unique_ptr<Browser> log_in(int person, int receive_buffer = 0) {
    unsigned status = 0;
    auto browser = std::make_unique<Browser>(port(), receive_buffer);
    const std::string login = Json{{"name", "p" + std::to_string(person)}, {"password", kPassword}}.dump();
    cookie_ = Browser(port()).request("POST", "/api/login", login).cookie;
    browser->open_console(cookie_, status);
    return browser;
  }
  std::string prepared() {
    start_sodium();
    const std::filesystem::path data = folder_.path() / "data";
    std::filesystem::create_directories(data);
    Store store(data / "relay.db");
    const auto hash = hash_password(kPassword);
    for (int person = 0; person < kGoodViewers + 2; ++person)
      store.add_user("p" + std::to_string(person), hash);
    store.open_enrolment(60);
    return data;
  }

  vantelink_test::TempFolder folder_;
  vantelink_test::RelayProcess relay_;
  std::string cookie_, first_cookie_, id_;
  std::vector<std::unique_ptr<Browser>> viewers_;
  std::optional<RawSession> session_;
  std::uint32_t last_number_ = 0;
};

// Reads pictures until the last one, at most so many bytes a second, and returns their ages in ms.
std::vector<double> view(Browser& browser, double bytes_per_second = 1e12) {
  std::vector<double> ages;
  auto next = Steady::now();
  for (;;) {
    const Browser::Message message = browser.read_message();
    const auto now = Steady::now();
    next = std::max(next, now) + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(
                                     static_cast<double>(message.bytes.size()) / bytes_per_second));
    std::this_thread::sleep_until(next);
    if (message.text || message.bytes[0] != static_cast<char>(Msg::StreamFrame)) continue;
    if (message.bytes.size() < kPictureBytes) return ages;
    std::int64_t sent = 0;
    std::memcpy(&sent, message.bytes.data() + kEnvelopeHeaderSize, sizeof sent);
    ages.push_back(
        std::chrono::duration<double, std::milli>(now.time_since_epoch() - Steady::duration(sent)).count());
  }
}

// The ages at all viewers that keep up, sorted.
std::vector<double> run(Scene& scene, Browser* slow, std::vector<double>* slow_ages) {
  std::vector<std::vector<double>> ages(kGoodViewers);
  std::vector<std::thread> readers;
  for (std::size_t i = 0; i < kGoodViewers; ++i)
    readers.emplace_back([&, i] { ages[i] = view(scene.viewer(i)); });
  if (slow) readers.emplace_back([&] { *slow_ages = view(*slow, kSlowBytesPerSecond); });
  scene.send_pictures();
  for (std::thread& reader : readers)
    reader.join();
  std::vector<double> all;
  for (const auto& part : ages)
    all.insert(all.end(), part.begin(), part.end());
  std::ranges::sort(all);
  if (slow) std::ranges::sort(*slow_ages);
  return all;
}

double quantile(const std::vector<double>& sorted, double part) {
  return sorted.empty() ? -1
                        : sorted[static_cast<std::size_t>(part * static_cast<double>(sorted.size() - 1))];
}

// Reads until the last picture of the group has arrived.
void read_group(Browser& browser) {
  for (int left = kPicturesPerSecond; left > 0;) {
    const Browser::Message message = browser.read_message();
    if (!message.text && message.bytes[0] == static_cast<char>(Msg::StreamFrame)) --left;
  }
}

// The times of `act` in ms, sorted.
template <class Act>
std::vector<double> times_of(Act act) {
  constexpr int kTimes = 50;
  std::vector<double> times;
  for (int i = 0; i < kTimes; ++i) {
    const auto begin = Steady::now();
    act();
    times.push_back(std::chrono::duration<double, std::milli>(Steady::now() - begin).count());
  }
  std::ranges::sort(times);
  return times;
}

// From the request for the stream, and from the beginning of a new connection, to the present picture, which
// needs the whole group.
void FirstPicture(benchmark::State& state) {
  Scene scene;
  for (auto step : state) {
    scene.send_group();
    read_group(scene.viewer(0));
    Browser& joiner = scene.add();
    const auto joined = times_of([&] {
      joiner.send_envelope(Msg::StreamStart, scene.last_number(), "{}");
      read_group(joiner);
    });
    const auto returned = times_of([&] { read_group(scene.reconnect()); });
    state.counters["join_p50_ms"] = quantile(joined, 0.5);
    state.counters["join_p99_ms"] = quantile(joined, 0.99);
    state.counters["return_p50_ms"] = quantile(returned, 0.5);
    state.counters["return_p99_ms"] = quantile(returned, 0.99);
  }
}
BENCHMARK(FirstPicture)->Iterations(1)->Unit(benchmark::kMillisecond);

void Viewers(benchmark::State& state) {
  Scene scene;
  const double memory_before = memory_kib(scene.relay());
  for (int i = 1; i < kGoodViewers; ++i)
    scene.add();
  for (auto step : state) {
    const double before = processor_seconds(scene.relay());
    const std::vector<double> alone = run(scene, nullptr, nullptr);
    const double used = processor_seconds(scene.relay()) - before;
    state.counters["kib_a_viewer"] = (memory_kib(scene.relay()) - memory_before) / (kGoodViewers - 1);
    state.counters["cpu_percent_a_viewer"] = 100 * used / kSeconds / kGoodViewers;
    scene.add(kReceiveBuffer);  // reads nothing
    Browser& slow = scene.add(kReceiveBuffer);
    std::vector<double> slow_ages;
    const std::vector<double> beside = run(scene, &slow, &slow_ages);
    state.counters["alone_p50_ms"] = quantile(alone, 0.5);
    state.counters["alone_p99_ms"] = quantile(alone, 0.99);
    state.counters["beside_p50_ms"] = quantile(beside, 0.5);
    state.counters["beside_p99_ms"] = quantile(beside, 0.99);
    state.counters["slow_p50_ms"] = quantile(slow_ages, 0.5);
    state.counters["lost"] =
        1 - static_cast<double>(beside.size()) / (kGoodViewers * kSeconds * kPicturesPerSecond);
  }
}
BENCHMARK(Viewers)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
