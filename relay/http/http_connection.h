// Reads the HTTP requests of one connection and writes the replies, up to an upgrade to a WebSocket.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <boost/asio/awaitable.hpp>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/http/replies.h"
#include "relay/net/connections.h"

namespace vlk::relay {

class TlsStream;

// What the connection needs to know of the rest of the relay. The functions are called on the relay's one
// thread.
struct HttpService {
  const Limits& limits;
  const Log& log;
  // Called with each request before the others. Returns false if the connection has to end.
  std::function<bool(const Request&, Connections::Place&)> identify;
  // Answers a request.
  std::function<boost::asio::awaitable<Reply>(const Request&, const Connections::Place&)> answer;
  // Checks an upgrade request. If it is refused, returns false and puts the reply into `refusal`.
  std::function<bool(const Request&, const Connections::Place&, Reply& refusal)> admit;
  // Whether a request comes from a person who has logged in. Only its header has arrived.
  std::function<bool(const Request&)> known;
};

// Serves requests until an upgrade request was admitted, which is returned, or until the connection has
// ended. The stream has completed its handshake.
[[nodiscard]] boost::asio::awaitable<std::unique_ptr<Request>> serve_http(TlsStream& stream,
                                                                          Connections::Place& place,
                                                                          const HttpService& service);

}  // namespace vlk::relay
