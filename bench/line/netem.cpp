// Runs ip(8) and tc(8).
#include "netem.h"

#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <stdexcept>

namespace vantelink_bench {
namespace {

// Returns what the command wrote if it failed; empty if it succeeded.
std::string problem_of(const std::string& command) {
  std::FILE* const output = ::popen((command + " 2>&1").c_str(), "r");
  if (!output) return "cannot run a command";
  std::string text;
  std::array<char, 256> part{};
  while (std::fgets(part.data(), part.size(), output))
    text += part.data();
  if (::pclose(output) == 0) return "";
  return "\"" + command + "\" failed: " + text.substr(0, text.find('\n'));
}

void perform(const std::string& command) {
  const std::string problem = problem_of(command);
  if (!problem.empty()) throw std::runtime_error(problem);
}

// Packets on the real line have at most 1500 bytes, and its queue counts packets.
constexpr double kPacket = 1500;

}  // namespace

std::string netem_missing() {
  // A child tries, because a process cannot leave its namespaces.
  std::array<int, 2> channel{};
  if (::pipe(channel.data()) != 0) return "pipe failed";
  const pid_t child = ::fork();
  if (child == 0) {
    std::string problem;
    try {
      enter_network();
      perform("tc qdisc add dev lo root netem delay 1ms");
    } catch (const std::runtime_error& failure) {
      problem = failure.what();
    }
    (void)!::write(channel[1], problem.data(), problem.size());
    ::_exit(0);
  }
  ::close(channel[1]);
  std::string problem;
  for (char byte = 0; ::read(channel[0], &byte, 1) == 1;)
    problem += byte;
  ::close(channel[0]);
  ::waitpid(child, nullptr, 0);
  return problem;
}

void enter_network() {
  const uid_t user = ::getuid();
  if (::unshare(CLONE_NEWNET) != 0) {
    if (::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
      throw std::runtime_error("there is no right to make a network namespace");
    std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  }
  perform("ip link set dev lo mtu 1500 gso_max_segs 1 up");
}

void limit_send_buffers(std::size_t bytes) {
  constexpr std::size_t kLeast = 4096;
  std::ofstream file("/proc/sys/net/ipv4/tcp_wmem");
  file << kLeast << ' ' << bytes << ' ' << bytes << std::flush;
  if (!file) throw std::runtime_error("the size of send buffers cannot be set");
}

Netem::Netem(unsigned short port, const std::string& address, const vlk::relay::LineRules& rules)
    : rules_(rules) {
  const std::string number = std::to_string(port);
  perform("tc qdisc add dev lo root handle 1: prio bands 5 priomap 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
  lose("add", rules.loss);
  const std::string filter = "tc filter add dev lo parent 1: protocol ip u32 match ip ";
  perform(filter + "dst " + address + "/32 match ip dport " + number + " 0xffff flowid 1:4");
  perform(filter + "src " + address + "/32 match ip sport " + number + " 0xffff flowid 1:5");
  if (!rules.outage) return;
  outage_ = std::jthread([this](const std::stop_token& stop) {
    std::mutex lock;
    std::condition_variable_any never;
    std::unique_lock guard(lock);
    const auto pause = [&](vlk::relay::LineTime until) {
      (void)never.wait_until(guard, stop, until, [] { return false; });
    };
    pause(rules_.outage->begin);
    lose("change", 1);
    pause(rules_.outage->end);
    lose("change", rules_.loss);
  });
}

Netem::~Netem() = default;

void Netem::lose(const std::string& verb, double share) const {
  for (const std::string band : {"4", "5"}) {
    std::string command = "tc qdisc " + verb + " dev lo parent 1:" + band + " handle " + band +
                          "0: netem delay " + std::to_string(rules_.delay.count()) + "ms loss " +
                          std::to_string(share * 100) + "%";
    double held = static_cast<double>(rules_.queue) / kPacket;
    if (rules_.bits_per_second > 0) {
      command += " rate " + std::to_string(static_cast<long>(rules_.bits_per_second)) + "bit";
      // netem's queue also holds what travels.
      held += rules_.bits_per_second / 8 * std::chrono::duration<double>(rules_.delay).count() / kPacket;
    }
    perform(command + " limit " + std::to_string(static_cast<int>(held) + 1));
  }
}

}  // namespace vantelink_bench
