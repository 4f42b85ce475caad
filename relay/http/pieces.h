// Sends a reply whose body is made while it is sent.
#pragma once

#include <boost/asio/awaitable.hpp>

#include "relay/base/log.h"
#include "relay/http/replies.h"
#include "relay/net/connections.h"

namespace vlk::relay {

class TlsStream;

// Writes the header and each piece as a chunk. Each has the time limit of a request for itself, because an
// export may take minutes on a slow connection. Returns false if the reply was not sent as a whole; then the
// connection has to end, so that the receiver knows.
[[nodiscard]] boost::asio::awaitable<bool> write_pieces(TlsStream& stream, Connections::Place& place,
                                                        Reply& reply, const Log& log);

}  // namespace vlk::relay
