// The time that the relay adds to a picture and to an input while many sessions are under way: from one end's
// write to the other end's read, through the relay, and through a program that copies between as many pairs
// of TLS connections. Both are processes of their own; all their peers are on one thread of this one.
//
// --seconds=N sets the time of each measurement.
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "options.h"
#include "relay/base/secrets.h"
#include "relay/browser.h"
#include "relay/storage/store.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"
#include "timed_ends.h"
#include "tls_peer.h"

namespace {

using namespace vantelink_bench;
using vlk::Msg;
using vlk::relay::Browser;
using vlk::relay::Json;
using vlk::relay::RawPeer;

constexpr char kPassword[] = "correct horse battery";
constexpr std::size_t kSessionsOfALogin = 16;
constexpr std::size_t kPeersOfAnAddress = 100;

std::string address_of(std::size_t number) {
  return "127.0.1." + std::to_string(1 + number / kPeersOfAnAddress);
}

void add_session(TimedEnds& ends, unsigned short port, std::size_t number, const std::string& cookie) {
  auto machine = std::make_unique<End>(port, address_of(number));
  auto viewer = std::make_unique<End>(port, address_of(number));
  machine->start_tls();
  machine->peer.upgrade();
  machine->peer.send_message(Msg::Hello, 0, R"({"role":"agent"})");
  machine->peer.send_message(Msg::Enroll, 0, R"({"name":"machine"})");
  const std::string id = Json::parse(machine->peer.read_message(Msg::EnrollResult))["agent_id"];
  viewer->start_tls();
  viewer->peer.upgrade("/console",
                       "Origin: https://localhost\r\nCookie: __Host-vantelink_session=" + cookie + "\r\n");
  viewer->peer.send(RawPeer::frame(vlk::kWsText, Json{{"type", "open"}, {"agent", id}}.dump()));
  machine->peer.read_message(Msg::SessionRequest);
  machine->session = viewer->session = machine->peer.last_session();
  machine->peer.send_message(Msg::SessionAccept, machine->session, "{}");
  viewer->peer.read_text("accepted");
  viewer->peer.send_message(Msg::StreamStart, viewer->session, R"({"max_fps":60,"bitrate":6000000})");
  machine->messages = viewer->messages = true;
  ends.add(std::move(machine), std::move(viewer));
}

Delays through_relay(std::size_t sessions, const Load& load, std::chrono::seconds time) {
  const vantelink_test::TempFolder folder;
  const std::string data = folder.path() / "data";
  std::filesystem::create_directories(data);
  vlk::relay::start_sodium();
  vlk::relay::Store store(data + "/relay.db");
  store.add_user("admin", vlk::relay::hash_password(kPassword));
  store.open_enrolment(600, std::nullopt);
  const vantelink_test::RelayProcess relay(data, {"--enrolments", "1000000"});
  const auto port = static_cast<unsigned short>(relay.port());
  const std::string credentials = Json{{"name", "admin"}, {"password", kPassword}}.dump();
  TimedEnds ends(load);
  std::string cookie;
  for (std::size_t number = 0; number < sessions; ++number) {
    if (number % kSessionsOfALogin == 0)
      cookie = Browser(port).request("POST", "/api/login", credentials).cookie;
    add_session(ends, port, number, cookie);
  }
  return ends.measure(time);
}

// Copies between pairs of connections until it is killed.
[[noreturn]] void copy(const TlsListener& listener, std::size_t pairs) {
  struct Side {
    Ssl ssl{nullptr, &SSL_free};
    Side* other = nullptr;
  };
  std::vector<Side> sides(2 * pairs);
  const int poll = ::epoll_create1(EPOLL_CLOEXEC);
  for (std::size_t i = 0; i < sides.size(); ++i) {
    sides[i].ssl = listener.accept();
    sides[i].other = &sides[i ^ 1];
    const int socket = SSL_get_fd(sides[i].ssl.get());
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    epoll_event event{EPOLLIN, {&sides[i]}};
    ::epoll_ctl(poll, EPOLL_CTL_ADD, socket, &event);
  }
  for (;;) {
    std::array<epoll_event, 256> events{};
    const int ready = ::epoll_wait(poll, events.data(), static_cast<int>(events.size()), -1);
    for (int i = 0; i < ready; ++i) {
      const Side& side = *static_cast<Side*>(events[static_cast<std::size_t>(i)].data.ptr);
      unsigned char bytes[16 * 1024];
      for (int count = 0; (count = SSL_read(side.ssl.get(), bytes, sizeof bytes)) > 0;) {
        if (SSL_write(side.other->ssl.get(), bytes, count) != count) ::_exit(1);
      }
    }
  }
}

Delays through_copy(std::size_t sessions, const Load& load, std::chrono::seconds time) {
  const TlsListener listener;
  const pid_t copier = ::fork();
  if (copier == 0) copy(listener, sessions);
  Delays delays;
  {
    TimedEnds ends(load);
    for (std::size_t number = 0; number < sessions; ++number) {
      auto machine = std::make_unique<End>(listener.port);
      machine->start_tls();
      auto viewer = std::make_unique<End>(listener.port);
      viewer->start_tls();
      ends.add(std::move(machine), std::move(viewer));
    }
    delays = ends.measure(time);
  }
  ::kill(copier, SIGKILL);
  ::waitpid(copier, nullptr, 0);
  return delays;
}

double quantile(std::vector<double>& values, double share) {
  if (values.empty()) throw std::runtime_error("nothing has arrived");
  const auto at =
      values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

void print(std::size_t sessions, const char* what, std::vector<double> relay, std::vector<double> copy) {
  const double median = quantile(relay, 0.5), late = quantile(relay, 0.99);
  const double copy_median = quantile(copy, 0.5), copy_late = quantile(copy, 0.99);
  std::printf("%8zu %-8s %8.2f %8.2f %10.2f %8.2f %10.2f %6.2f %8zu\n", sessions, what, median, late,
              copy_median, copy_late, median / copy_median, late / copy_late, relay.size());
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    std::chrono::seconds time{20};
    read_options(argc, argv,
                 {{"seconds", [&](const auto& value) { time = std::chrono::seconds(std::stol(value)); }}});
    (void)raise_open_files();
    std::printf("%8s %-8s %17s %19s %17s %8s\n", "sessions", "message", "relay p50, p99 ms",
                "copy p50, p99 ms", "ratio p50, p99", "messages");
    for (const auto& [sessions, a_second] : {std::pair<std::size_t, double>{100, 5}, {1000, 1}}) {
      const Load load{.a_second = a_second};
      const Delays copied = through_copy(sessions, load, time), relayed = through_relay(sessions, load, time);
      print(sessions, "picture", relayed.pictures, copied.pictures);
      print(sessions, "input", relayed.inputs, copied.inputs);
    }
    return 0;
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
}
