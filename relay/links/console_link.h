// The relay's side of a browser's WebSocket, as described in docs/console-protocol.md.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>

#include "relay/base/limits.h"
#include "relay/session/parts.h"

namespace vlk::relay {

class WebSocketLink;

// Serves one browser until its connection ends. `peer` has everything but its channel. `parts` and `limits`
// outlive the connection.
[[nodiscard]] boost::asio::awaitable<void> serve_console(Parts& parts, const Limits& limits,
                                                         std::shared_ptr<WebSocketLink> link,
                                                         std::shared_ptr<ConsolePeer> peer);

}  // namespace vlk::relay
