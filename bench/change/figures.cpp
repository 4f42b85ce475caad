// Computes delays and prints the table.
#include "figures.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>

namespace vantelink_bench {
namespace {

constexpr double kWithoutDifference = 100;  // decibels; see Viewer::similarity

double quantile(std::vector<double>& values, double share) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  return values[static_cast<std::size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
}

// The peer's median, and our ratios to its median and its processor time: empty places for what there is not.
std::string compared(const Figures& ours, const std::vector<Figures>& table, const std::string& peer) {
  const auto theirs = std::ranges::find_if(
      table, [&](const Figures& one) { return one.scene == ours.scene && one.side == peer; });
  const auto place = [](int width, int digits, double value) {
    char text[32];
    std::snprintf(text, sizeof text, " %*.*f", width, digits, value);
    return value > 0 ? std::string(text) : std::string(static_cast<std::size_t>(width) + 1, ' ');
  };
  const auto ratio = [&](double our, double their) { return place(6, 2, their > 0 ? our / their : 0); };
  if (ours.peer || theirs == table.end()) return std::string(23, ' ');
  return place(8, 1, theirs->median) + ratio(ours.median, theirs->median) + ratio(ours.cores, theirs->cores);
}

}  // namespace

void set_delays(Figures& figures, const std::vector<Moment>& painted, const std::vector<Moment>& seen) {
  constexpr std::chrono::milliseconds kClockReading{
      2};  // the painter reads its clock after the X server's answer
  std::vector<double> delays;
  for (const Moment& change : painted) {
    const auto shows = [&](const Moment& picture) {
      if (picture.number < change.number || picture.number > painted.back().number) return false;
      return picture.time + kClockReading >= painted[picture.number - painted.front().number].time;
    };
    const auto picture = std::ranges::find_if(seen, shows);
    if (picture == seen.end()) continue;
    delays.push_back(std::chrono::duration<double, std::milli>(picture->time - change.time).count());
  }
  figures.changes = painted.size();
  figures.missed = painted.size() - delays.size();
  figures.median = quantile(delays, 0.5);
  figures.late = quantile(delays, 0.99);
}

void print(const std::vector<Figures>& table) {
  std::vector<std::string> peers;
  for (const Figures& row : table) {
    if (row.peer && std::ranges::find(peers, row.side) == peers.end()) peers.push_back(row.side);
  }
  std::printf("%-9s %-16s %8s %7s %7s %6s %9s %9s %6s %7s %6s %7s %6s", "", "", "change", "to", "changes",
              "not", "pictures", "received", "CPU", "ms CPU", "Xvfb", "wine-", "PSNR");
  for (const std::string& peer : peers)
    std::printf(" %8s %6s %6s", peer.substr(0, 8).c_str(), "ratio", "ratio");
  std::printf("\n%-9s %-16s %8s %7s %7s %6s %9s %9s %6s %7s %6s %7s %6s", "scene", "side", "pixel 50",
              "99 ms", "", "shown", "a second", "kB/s", "cores", "picture", "cores", "server", "dB");
  for (std::size_t i = 0; i < peers.size(); ++i)
    std::printf(" %8s %6s %6s", "50 ms", "delay", "CPU");
  std::printf("\n");
  for (const Figures& row : table) {
    char likeness[16] = "equal";
    if (row.likeness < kWithoutDifference) std::snprintf(likeness, sizeof likeness, "%.1f", row.likeness);
    std::printf("%-9s %-16s %8.1f %7.1f %7zu %6zu %9.1f %9.0f %6.3f %7.2f %6.3f %7.3f %6s", row.scene.c_str(),
                row.side.c_str(), row.median, row.late, row.changes, row.missed, row.pictures,
                row.bytes / 1000, row.cores, row.milliseconds_a_picture(), row.display, row.server, likeness);
    for (const std::string& peer : peers)
      std::printf("%s", compared(row, table, peer).c_str());
    std::printf("\n");
  }
}

}  // namespace vantelink_bench
