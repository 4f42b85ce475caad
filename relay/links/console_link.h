// The WebSocket of a representative's browser, as docs/protocol.md tells it.
#pragma once

#include <memory>

#include <boost/asio/awaitable.hpp>

#include "relay/session/hub.h"

namespace vlk::relay {

// Serves one browser until its connection ends. `hub` and `limits` outlive it.
boost::asio::awaitable<void> serve_console(Hub& hub, const Limits& limits, std::shared_ptr<ConsolePeer> peer);

}  // namespace vlk::relay
