// The age of a session's pictures at a viewer whose line carries less than the machine sends: 30 pictures a
// second of 20 KiB, and a viewer that reads 250 KiB/s. The relay is its own process.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
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
constexpr std::size_t kPictureBytes = 20 * 1024;
constexpr int kPicturesPerSecond = 30;
constexpr int kSeconds = 30;
// A machine sends a key frame when it is asked to. The relay asks once a second.
constexpr int kPicturesPerGroup = kPicturesPerSecond;
constexpr double kViewerBytesPerSecond = 250 * 1024;
constexpr int kReceiveBuffer = 16 * 1024;

enum class Codec { H264, Jpeg };

struct Arrival {
  double at;   // seconds since the start
  double age;  // ms
};

// A relay, an accepted session, and its slow viewer.
class Scene {
 public:
  Scene() : relay_(prepared(), {}), browser_(port(), kReceiveBuffer) {
    unsigned status = 0;
    const std::string login = Json{{"name", "admin"}, {"password", kPassword}}.dump();
    browser_.open_console(Browser(port()).request("POST", "/api/login", login).cookie, status);
    session_.emplace(port(), browser_);
  }

  // Returns the share of the time that the machine's writes took.
  double send_pictures(Codec codec) {
    Steady::duration writing{};
    auto next = Steady::now();
    for (int i = 0; i < kSeconds * kPicturesPerSecond; ++i) {
      std::this_thread::sleep_until(next += std::chrono::microseconds(1'000'000 / kPicturesPerSecond));
      const std::string picture = make_picture(codec, i % kPicturesPerGroup == 0);
      const auto before = Steady::now();
      session_->send(Msg::StreamFrame, picture);
      writing += Steady::now() - before;
    }
    return std::chrono::duration<double>(writing).count() / kSeconds;
  }

  std::vector<Arrival> view(Steady::time_point start) {
    std::vector<Arrival> arrivals;
    auto next = start;
    while (Steady::now() - start < std::chrono::seconds(kSeconds) - std::chrono::milliseconds(500)) {
      const Browser::Message message = browser_.read_message();
      const auto now = Steady::now();
      next = std::max(next, now) + std::chrono::duration_cast<Steady::duration>(std::chrono::duration<double>(
                                       static_cast<double>(message.bytes.size()) / kViewerBytesPerSecond));
      std::this_thread::sleep_until(next);
      if (message.text || message.bytes.size() < kPictureBytes) continue;
      std::int64_t sent = 0;
      std::memcpy(&sent, message.bytes.data() + kEnvelopeHeaderSize, sizeof sent);
      const std::chrono::duration<double, std::milli> age(
          Steady::duration(Steady::now().time_since_epoch().count() - sent));
      arrivals.push_back({std::chrono::duration<double>(now - start).count(), age.count()});
    }
    return arrivals;
  }

 private:
  [[nodiscard]] unsigned short port() const { return static_cast<unsigned short>(relay_.port()); }
  std::string prepared() {
    start_sodium();
    const std::filesystem::path data = folder_.path() / "data";
    std::filesystem::create_directories(data);
    Store store(data / "relay.db");
    store.add_user("admin", hash_password(kPassword));
    store.open_enrolment(60);
    return data;
  }
  static std::string make_picture(Codec codec, bool key) {
    const std::int64_t now = Steady::now().time_since_epoch().count();
    std::string picture(sizeof now, '\0');
    std::memcpy(picture.data(), &now, sizeof now);
    picture += codec == Codec::Jpeg ? std::string("\xff\xd8\xff") : std::string("\0\0\1", 3);
    picture += key ? '\x65' : '\x41';
    picture.resize(kPictureBytes, 'x');
    return picture;
  }

  vantelink_test::TempFolder folder_;
  vantelink_test::RelayProcess relay_;
  Browser browser_;
  std::optional<RawSession> session_;
};

// The median age of the pictures that arrived within a second of the given one.
double age_at(const std::vector<Arrival>& arrivals, double second) {
  std::vector<double> ages;
  for (const Arrival& arrival : arrivals) {
    if (std::abs(arrival.at - second) < 1) ages.push_back(arrival.age);
  }
  if (ages.empty()) return -1;
  std::ranges::sort(ages);
  return ages[ages.size() / 2];
}

void SlowViewer(benchmark::State& state, Codec codec) {
  Scene scene;
  for (auto step : state) {
    double writing = 0;
    const auto start = Steady::now();
    std::thread machine([&] { writing = scene.send_pictures(codec); });
    const std::vector<Arrival> arrivals = scene.view(start);
    machine.join();
    const double seconds = std::chrono::duration<double>(Steady::now() - start).count();
    std::vector<double> ages;
    ages.reserve(arrivals.size());
    for (const Arrival& arrival : arrivals)
      ages.push_back(arrival.age);
    std::ranges::sort(ages);
    state.counters["age10s_ms"] = age_at(arrivals, 10);
    state.counters["age20s_ms"] = age_at(arrivals, 20);
    state.counters["age29s_ms"] = age_at(arrivals, 28.5);
    state.counters["age_p99_ms"] = ages.empty() ? -1 : ages[ages.size() * 99 / 100];
    state.counters["shown_per_s"] = static_cast<double>(arrivals.size()) / kSeconds;
    state.counters["sent_per_s"] = kSeconds * kPicturesPerSecond / seconds;
    state.counters["writing"] = writing;
  }
}
BENCHMARK_CAPTURE(SlowViewer, h264, Codec::H264)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(SlowViewer, jpeg, Codec::Jpeg)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
