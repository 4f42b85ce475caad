// A TCP proxy that makes the connections through it as slow as a given line.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include "relay/net/line/line_model.h"

namespace vlk::relay {

// Listens on a free port of the loopback address and passes bytes on to and from another port there. All
// connections share the line. The rules hold for each direction by itself.
//
// The proxy's system confirms what the proxy has read, so the two peers see the line's queue and outages only
// as a peer that reads late: their systems send nothing again and never give a connection up. The buffers of
// the proxy's sockets are small, so that they do not add a queue that the line does not have.
class SlowLine {
 public:
  SlowLine(unsigned short port, const LineRules& rules);
  ~SlowLine();
  SlowLine(const SlowLine&) = delete;
  SlowLine& operator=(const SlowLine&) = delete;

  [[nodiscard]] unsigned short port() const;

 private:
  struct Wire;
  const std::unique_ptr<Wire> wire_;
  std::thread thread_;
};

}  // namespace vlk::relay
