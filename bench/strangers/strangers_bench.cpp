// What strangers cost the relay and its honest peers. Starts the relay's program for each attack, plays the
// strangers, and fails if a goal is missed. The argument --benchmark_filter=REGEX chooses attacks by name.
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <map>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "attacked_relay.h"
#include "honest_session.h"
#include "relay/net/descriptors.h"

namespace {

using namespace vantelink_bench;
using vlk::Msg;
using vlk::relay::Browser;
using vlk::relay::RawPeer;
using Clock = std::chrono::steady_clock;

constexpr std::size_t kStrangers = 6000;
constexpr std::size_t kSources = 200;
constexpr std::chrono::milliseconds kWait{200};
constexpr std::chrono::seconds kAfterwards{
    11};  // the time limit of a connection before a log-in, and a second

// Lets this thread, which plays strangers, give way to the relay and the honest session: strangers have
// processors of their own.
void give_way() {
  (void)::setpriority(PRIO_PROCESS, 0, 19);
}

// The header of a frame of 60 MiB with an envelope of that size, and the begin of its content.
std::string announcement() {
  constexpr std::uint32_t kSize = 60u << 20;
  std::string bytes("\x82\xFF\0\0\0\0", 6);
  for (int shift = 24; shift >= 0; shift -= 8)
    bytes += static_cast<char>(kSize >> shift & 0xFF);
  bytes.append(4, '\0');  // the mask
  const auto envelope = vlk::encode_envelope(Msg::ClipboardData, 1, nullptr, 0, 0);
  bytes.append(envelope.begin(), envelope.end());
  return bytes + std::string(16'000, 'x');
}

// `approved` says whether the machines of the strangers are approved, as in an open enrolment window.
// Otherwise they wait for approval.
void announce(bool approved) {
  AttackedRelay relay({"--enrolments", "100000"}, approved ? std::nullopt : std::optional<std::int64_t>(1));
  HonestSession honest(relay.port());
  std::vector<Peer> strangers(kStrangers);
  std::atomic<std::size_t> next = 0;
  std::vector<std::thread> threads;
  threads.reserve(8);
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (std::size_t number = next++; number < kStrangers; number = next++)
        strangers[number] = enrolled(relay.port(), source(number % kSources));
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  std::erase(strangers, nullptr);
  std::printf("%zu machines of strangers are enrolled; memory %.1f MiB\n", strangers.size(), relay.memory());
  relay.forget_peak();
  honest.restart();
  std::thread sender([&] {
    give_way();
    const std::string first = announcement(), more(16'000, 'x');
    for (const Peer& stranger : strangers)
      stranger->send(first);
    for (int round = 0; round < 11; ++round) {
      for (const Peer& stranger : strangers)
        stranger->send(more);
    }
  });
  sender.join();
  const std::string what = std::to_string(strangers.size()) + (approved ? " approved" : " waiting");
  report(what + " machines of strangers announce 60 MiB and send on: memory", relay.peak(), "MiB", 64, "771");
  report("  frames of an honest session meanwhile, p99", honest.p99(), "ms", 20, "537");
}

void end_some(const AttackedRelay& relay, int count) {
  std::vector<Peer> peers;
  for (int i = 0; i < count; ++i) {
    peers.push_back(std::make_unique<RawPeer>(relay.port()));
    RawPeer& peer = *peers.back();
    peer.start_tls();
    peer.upgrade();
    const std::string bad =
        i % 2 ? RawPeer::frame(vlk::kWsBinary, "x")
              : RawPeer::message_frame(Msg::Login, 0, R"({"agent_id":"x","agent_secret":"y"})");
    peer.send(bad + RawPeer::frame(vlk::kWsClose, ""));
  }
}

void ends() {
  const AttackedRelay relay;
  end_some(relay, 10);
  const double before = relay.memory();
  end_some(relay, 600);
  std::this_thread::sleep_for(kAfterwards);
  report("600 connections ended with a further frame: growth after 11 s", relay.memory() - before, "MiB", 4,
         "51.7");
}

// Changes, inserts, removes or repeats some bytes.
std::string mutated(std::string bytes, std::mt19937& random) {
  for (unsigned changes = 1 + random() % 4; changes > 0; --changes) {
    const std::size_t at = random() % bytes.size();
    const auto byte = static_cast<char>(random());
    switch (random() % 4) {
      case 0:
        bytes[at] = byte;
        break;
      case 1:
        bytes.insert(at, 1 + random() % 8, byte);
        break;
      case 2:
        bytes.erase(at, 1 + random() % 8);
        break;
      default:
        bytes += bytes.substr(at);
    }
    if (bytes.empty()) bytes = "x";
  }
  return bytes;
}

void send_mutated(const AttackedRelay& relay, int count, std::mt19937& random) {
  for (int i = 0; i < count; ++i) {
    RawPeer peer(relay.port());
    peer.start_tls();
    std::string bytes;
    if (random() % 2) {
      peer.upgrade();
      bytes = RawPeer::message_frame(Msg::Hello, 0, R"({"role":"agent"})") +
              RawPeer::message_frame(Msg::Login, 0, R"({"agent_id":"x","agent_secret":"y"})");
    } else {
      bytes = "GET /api/me HTTP/1.1\r\nHost: localhost\r\nCookie: a=b\r\nContent-Length: 2\r\n\r\n{}";
    }
    peer.send(mutated(bytes, random));
    peer.limit_waits(std::chrono::milliseconds(5));
    (void)peer.ended();
  }
}

void mutate() {
  const AttackedRelay relay;
  std::mt19937 random(1);
  send_mutated(relay, 200, random);
  const double before = relay.memory();
  send_mutated(relay, 2000, random);
  std::this_thread::sleep_for(kAfterwards);
  report("2,000 mutated requests: growth after 11 s", relay.memory() - before, "MiB", 4, "7.4 to 8.3");
}

// One host opens connections, and goes on while an agent and a representative connect. `tls` says whether its
// connections complete their handshakes.
void crowd(bool tls) {
  const AttackedRelay relay;
  std::atomic<std::size_t> opened = 0;
  std::atomic<bool> stop = false;
  std::thread host([&] {
    std::vector<Peer> peers(9000);
    for (; !stop; ++opened) {
      try {
        Peer& place = peers[opened % peers.size()];
        place.reset();
        place = std::make_unique<RawPeer>(relay.port(), "127.0.0.66");
        place->limit_waits(kWait);
        if (tls) place->start_tls();
      } catch (const std::exception&) {
        continue;  // the relay has closed the connection
      }
    }
  });
  while (opened < 9000)
    std::this_thread::sleep_for(kWait);
  const auto begin = Clock::now();
  const bool agent = enrolled(relay.port(), "127.0.0.77") != nullptr;
  Browser browser(relay.port());
  const bool representative = open_console(browser, relay.port());
  const double seconds = seconds_since(begin);
  stop = true;
  host.join();
  report(
      std::to_string(opened) + (tls ? " idle TLS" : " silent TCP") + " connections of one host: both get in",
      agent && representative ? seconds : 99, "s", 3, "not at all");
}

// Sends new names as fast as the relay reads them.
void send_names(RawPeer& agent, const std::atomic<bool>& stop, std::atomic<std::size_t>& sent) {
  give_way();
  agent.limit_waits(kWait);
  while (!stop) {
    const std::string name = R"({"name":"name )" + std::to_string(++sent) + "\"}";
    const std::string frame = RawPeer::message_frame(Msg::NameUpdate, 0, name);
    while (!stop && !agent.try_send(frame)) {
    }
  }
}

void rename() {
  const AttackedRelay relay;
  HonestSession honest(relay.port());
  const std::size_t log = relay.log_size();
  std::atomic<bool> stop = false;
  std::atomic<std::size_t> sent = 0;
  std::vector<Peer> agents;
  agents.reserve(20);
  for (int i = 0; i < 20; ++i)
    agents.push_back(enrolled(relay.port(), "127.0.0.88"));
  honest.restart();
  const auto begin = Clock::now();
  std::vector<std::thread> senders;
  senders.reserve(agents.size());
  for (const Peer& agent : agents)
    senders.emplace_back([&] { send_names(*agent, stop, sent); });
  // The system's buffers take the first names as fast as the strangers' processors can send.
  std::this_thread::sleep_for(std::chrono::seconds(3));
  const double first = honest.p99();
  honest.restart();
  std::this_thread::sleep_for(std::chrono::seconds(10));
  const double delay = honest.p99(), growth = static_cast<double>(relay.log_size() - log) / 1024;
  const double seconds = seconds_since(begin);
  stop = true;
  for (std::thread& sender : senders)
    sender.join();
  std::printf("%zu names sent; frames of the first 3 s, p99 %.1f ms\n", sent.load(), first);
  report("twenty agents of one address send new names: frames, p99", delay, "ms", 5, "55");
  report("  growth of the log", growth / seconds, "KiB/s", 10, "506");
}

void passwords() {
  const AttackedRelay relay;
  std::atomic<bool> stop = false;
  std::atomic<int> tried = 0;
  std::vector<std::thread> attackers;
  for (std::size_t i = 0; i < 50; ++i) {
    attackers.emplace_back([&, i] {
      try {
        RawPeer peer(relay.port(), source(i));
        peer.start_tls();
        while (!stop && try_password(peer, "wrong") != 0)
          ++tried;
      } catch (const std::exception& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
      }
    });
  }
  while (tried < 30)
    std::this_thread::sleep_for(kWait);
  double longest = 0;
  for (std::size_t i = 0; i < 5; ++i) {
    const auto begin = Clock::now();
    RawPeer peer(relay.port(), source(1000 + i));
    peer.start_tls();
    const bool good = try_password(peer, kPassword) == 200;
    longest = std::max(longest, good ? seconds_since(begin) : 99);
  }
  stop = true;
  for (std::thread& attacker : attackers)
    attacker.join();
  std::printf("%d wrong passwords tried\n", tried.load());
  report("wrong passwords of 50 addresses: longest of five right log-ins", longest, "s", 1, "4.5 to 5.2");
}

void descriptors() {
  rlimit usual{};
  ::getrlimit(RLIMIT_NOFILE, &usual);
  const rlimit small{1024, usual.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &small);
  const AttackedRelay relay;
  ::setrlimit(RLIMIT_NOFILE, &usual);
  rlimit its{};
  ::prlimit(relay.pid(), RLIMIT_NOFILE, nullptr, &its);
  report("started with 1,024 descriptors: limit not raised", its.rlim_cur >= 8192 ? 0 : 1, "", 1,
         "connections hang");
}

}  // namespace

int main(int argc, char** argv) {
  const std::map<std::string, void (*)()> attacks = {
      {"announce", [] { announce(false); }},
      {"announce-approved", [] { announce(true); }},
      {"ends", ends},
      {"mutate", mutate},
      {"rename", rename},
      {"passwords", passwords},
      {"descriptors", descriptors},
      {"silent", [] { crowd(false); }},
      {"idle", [] { crowd(true); }},
  };
  try {
    vlk::relay::raise_descriptor_limit(10'000);
    const std::string option = "--benchmark_filter=", argument = argc > 1 ? argv[1] : option + ".";
    if (!argument.starts_with(option)) throw std::runtime_error("the only option is " + option + "REGEX");
    const std::regex filter(argument.substr(option.size()));
    for (const auto& [name, attack] : attacks) {
      if (std::regex_search("Strangers/" + name, filter)) attack();
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  return missed() ? 1 : 0;
}
