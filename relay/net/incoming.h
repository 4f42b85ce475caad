// A message that arrives on a WebSocket.
#pragma once

#include <cstdint>

#include "relay/base/bytes.h"

namespace vlk::relay {

struct Incoming {
  bool text = false;
  bool kept = true;        // false if the message was dropped while it arrived
  std::uint64_t size = 0;  // received bytes
  Bytes bytes;             // the message or, if it was dropped, only its begin
};

}  // namespace vlk::relay
