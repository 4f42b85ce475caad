// A relay's program that strangers attack, what the strangers do, and what the attack costs.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "relay/net/strangers/raw_peer.h"
#include "support/peers/relay_process.h"
#include "support/temp_folder.h"

namespace vantelink_bench {

inline constexpr char kPassword[] = "correct horse battery";

// Runs with a data folder of its own, in which "admin" has the password kPassword.
class AttackedRelay {
 public:
  // All new machines are approved, or so many; later ones wait for approval.
  explicit AttackedRelay(const std::vector<std::string>& arguments = {},
                         std::optional<std::int64_t> approved = {});

  [[nodiscard]] unsigned short port() const { return static_cast<unsigned short>(process_.port()); }
  [[nodiscard]] pid_t pid() const { return process_.pid(); }
  [[nodiscard]] std::size_t log_size() const { return process_.log().size(); }
  // The memory that the program uses now, and the most that it has used since its start or since
  // forget_peak(), in MiB.
  [[nodiscard]] double memory() const { return status("VmRSS"); }
  [[nodiscard]] double peak() const { return status("VmHWM"); }
  void forget_peak();

 private:
  // A line of the process's status, in MiB.
  [[nodiscard]] double status(const std::string& line) const;

  vantelink_test::TempFolder folder_;
  vantelink_test::RelayProcess process_;
};

using Peer = std::unique_ptr<vlk::relay::RawPeer>;

// The address of a stranger, among 200 addresses for each 200 numbers.
std::string source(std::size_t number);
// A new machine that is connected. Null if the relay has closed its connection.
Peer enrolled(unsigned short port, const std::string& from);
// Requests a log-in on a connection whose TLS has started. Returns the HTTP status, or 0 if there is no
// answer.
unsigned try_password(vlk::relay::RawPeer& peer, const std::string& password);

// Prints a figure beside its goal and, in brackets, the figure of the relay that had no limits against
// strangers. Remembers whether a goal was missed.
void report(const std::string& what, double value, const char* unit, double goal, const char* before);
bool missed();

double seconds_since(std::chrono::steady_clock::time_point begin);

}  // namespace vantelink_bench
