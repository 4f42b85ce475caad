// Logs in, and changes the rules of the system's packet filter.
#include "faults.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "relay/browser.h"

namespace vantelink_bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kPause{250};

// Adds (-I) or removes (-D) the rule for packets with this port as their source or destination.
bool change(const char* verb, const char* side, const std::string& port) {
  const std::string command =
      std::string("iptables -w ") + verb + " INPUT -i lo -p tcp " + side + ' ' + port + " -j DROP";
  return std::system(command.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe)
}

}  // namespace

std::string LogIns::sentence() const {
  const std::lock_guard guard(lock_);
  return sentence_;
}

void LogIns::run(unsigned short port) {
  while (!stopping_) {
    const auto begin = Clock::now();
    std::string failure;
    try {
      const auto answer = vlk::relay::Browser(port).request("POST", "/api/login", credentials_);
      if (answer.status != 200) failure = std::to_string(answer.status) + ' ' + answer.text;
    } catch (const std::exception& problem) {
      failure = problem.what();
    }
    longest = std::max<double>(longest, std::chrono::duration<double>(Clock::now() - begin).count());
    ++(failure.empty() ? good : refused);
    if (!failure.empty()) {
      const std::lock_guard guard(lock_);
      sentence_ = failure;
    }
    std::this_thread::sleep_for(kPause);
  }
}

Firewall::Firewall(std::string port) : port_(std::move(port)) {
  for (const char* side : {"--dport", "--sport"})
    works_ = works_ && change("-I", side, port_);
}

Firewall::~Firewall() {
  for (const char* side : {"--dport", "--sport"})
    (void)change("-D", side, port_);
}

}  // namespace vantelink_bench
