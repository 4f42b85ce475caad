// A deterministic model of a machine that streams to one viewer through the relay, with the relay's ladder.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "relay/stream/rates.h"

namespace vlk::relay {

// From this second on, a line carries so many bits a second. 0 means that it carries nothing.
struct LineChange {
  double at = 0;
  double bits = 0;
};

struct LineSettings {
  std::vector<LineChange> speed{{0, 1e9}};
  double round_trip = 0.05;  // seconds, of an empty line
  double loss = 0;           // probability that a packet of 1200 bytes is lost
};

// The machine encodes at the asked rates. A key frame every 2 s has the bits of `key_seconds` of the stream.
struct ModelSettings {
  LineSettings machine{};
  LineSettings viewer{.round_trip = 0.02};
  double key_seconds = 0.25;
  double least_key_bytes = 0;      // an encoder's smallest key frame, whatever the bit rate
  double send_buffer = 128 << 10;  // bytes that the machine's system takes before a write blocks
  // The share of the asked bits that the desktop's changes use at this second; below 0.02 the screen is
  // still.
  std::vector<LineChange> busy{{0, 1}};
  double seconds = 600;
  Preset preset = Preset::Automatic;
  std::uint64_t seed = 1;
};

struct ModelStep {
  double at = 0;
  StreamRates rates{};
  bool up = false;
};

struct ModelResult {
  std::vector<ModelStep> steps;
  StreamRates last{};
  struct Shown {
    double at;
    double age;  // added, seconds
  };
  std::vector<Shown> shown;

  // The added age in ms that this share of the pictures shown between two seconds does not exceed.
  [[nodiscard]] double age(double share, double from = 0, double to = 1e9) const;
  // The most seconds between two pictures between two seconds.
  [[nodiscard]] double longest_gap(double from, double to) const;
  [[nodiscard]] int steps_between(double from, double to) const;
  // "p50 12 ms, p99 88 ms, worst 130 ms, 3 steps, last at 40 s, 60/s at 8.4 Mbit/s"
  [[nodiscard]] std::string summary() const;
};

[[nodiscard]] ModelResult run_model(const ModelSettings& settings);

}  // namespace vlk::relay
