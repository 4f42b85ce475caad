// Reads the header in two steps: the prefix announces the length of the rest.
#include "relay/net/source/proxy_header.h"

#include <optional>
#include <tuple>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/read.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/base/bytes.h"
#include "relay/base/source/source.h"
#include "relay/net/source/proxies.h"

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

}  // namespace

asio::awaitable<bool> read_proxy_header(tcp::socket& socket, Connections::Place& place, const Log& log) {
  place.on_cut([&socket](const std::string&) {
    boost::system::error_code ignored;
    socket.close(ignored);
  });
  place.expires_after(&Limits::handshake);
  Bytes header(kProxyPrefix);
  auto [error, size] = co_await asio::async_read(socket, asio::buffer(header), kAsTuple);
  const auto rest = error ? std::nullopt : proxy_rest(header);
  if (rest) {
    header.resize(kProxyPrefix + *rest);
    std::tie(error, size) = co_await asio::async_read(socket, asio::buffer(header) + kProxyPrefix, kAsTuple);
  }
  place.on_cut(nullptr);
  std::optional<Origin> origin;
  if (error || !rest || !parse_proxy_header(header, origin)) {
    log.write(place.peer(), "", "the proxy sent no valid header of the PROXY protocol");
    co_return false;
  }
  co_return !origin || place.move(source_of(origin->address), text_of(origin->address, origin->port));
}

}  // namespace vlk::relay
