// Starts the relay's program, reads its use of memory, and plays single strangers.
#include "attacked_relay.h"

#include <cstdio>
#include <fstream>

#include "relay/base/secrets.h"
#include "relay/storage/store.h"

namespace vantelink_bench {
namespace {

using vlk::Msg;
using vlk::relay::RawPeer;

constexpr std::int64_t kEnrolmentMinutes = 60;

bool goal_missed = false;

// The path of the data folder, in which "admin" and the enrolment window are stored.
std::string prepared(const std::string& data, std::optional<std::int64_t> approved) {
  vlk::relay::start_sodium();
  vlk::relay::Store store(data + "/relay.db");
  store.add_user("admin", vlk::relay::hash_password(kPassword));
  store.open_enrolment(kEnrolmentMinutes, approved);
  return data;
}

}  // namespace

AttackedRelay::AttackedRelay(const std::vector<std::string>& arguments, std::optional<std::int64_t> approved)
    : process_(prepared(folder_.path(), approved), arguments) {}

void AttackedRelay::forget_peak() {
  // proc(5): 5 resets the peak of the resident memory.
  std::ofstream("/proc/" + std::to_string(pid()) + "/clear_refs") << 5;
}

double AttackedRelay::status(const std::string& line) const {
  std::ifstream status("/proc/" + std::to_string(pid()) + "/status");
  for (std::string word; status >> word;) {
    double kib = 0;
    if (word == line + ':' && status >> kib) return kib / 1024;
  }
  return 0;
}

std::string source(std::size_t number) {
  return "127.0." + std::to_string(1 + number / 200) + '.' + std::to_string(1 + number % 200);
}

Peer enrolled(unsigned short port, const std::string& from) {
  try {
    auto peer = std::make_unique<RawPeer>(port, from);
    peer->start_tls();
    peer->upgrade();
    peer->send_message(Msg::Hello, 0, R"({"role":"agent"})");
    peer->send_message(Msg::Enroll, 0, R"({"name":"stranger"})");
    peer->read_message(Msg::EnrollResult);
    peer->limit_waits(std::chrono::milliseconds(5));
    return peer;
  } catch (const std::exception&) {
    return nullptr;
  }
}

unsigned try_password(RawPeer& peer, const std::string& password) {
  return peer.request("POST", "/api/login", R"({"name":"admin","password":")" + password + "\"}");
}

void report(const std::string& what, double value, const char* unit, double goal, const char* before) {
  const bool good = value < goal;
  goal_missed |= !good;
  std::printf("%-72s %8.1f %s, goal %g [%s]%s\n", what.c_str(), value, unit, goal, before,
              good ? "" : "  MISSED");
  std::fflush(stdout);
}

bool missed() {
  return goal_missed;
}

double seconds_since(std::chrono::steady_clock::time_point begin) {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

}  // namespace vantelink_bench
