// One run of the benchmark: a relay, a machine, a viewer, and a slow line to one of the two.
#pragma once

#include <chrono>
#include <string>

#include "relay/net/line/line_model.h"

namespace vantelink_bench {

enum class Side { Machine, Viewer };

// What slows the line down: the proxy of the tests, or the system's own emulator (tc-netem(8)).
enum class Means { Proxy, Netem };

struct Scenario {
  std::string name;
  vlk::relay::LineRules rules;
  std::chrono::seconds gone{0};  // the length of an outage
};

struct Conditions {
  std::chrono::seconds time{60};  // of the measurement
  Means means = Means::Proxy;
  bool download = true;
  bool upload = false;
  std::string quality;  // the preset of the stream; empty for fixed rates
};

// Measures for the time, and at least until a minute after the outage. Returns a row of the table. Throws
// std::runtime_error. A process runs one scenario only.
std::string run(const Scenario& scenario, Side side, const Conditions& conditions);

}  // namespace vantelink_bench
