// Reads the header of the PROXY protocol at the beginning of a trusted proxy's connection.
#pragma once

#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "relay/base/log.h"
#include "relay/net/connections.h"

namespace vlk::relay {

// Counts the connection under the source that the header names. Returns false if the connection has to end.
[[nodiscard]] boost::asio::awaitable<bool> read_proxy_header(boost::asio::ip::tcp::socket& socket,
                                                             Connections::Place& place, const Log& log);

}  // namespace vlk::relay
