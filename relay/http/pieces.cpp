// Writes a reply in chunks.
#include "relay/http/pieces.h"

#include <optional>
#include <string>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/http/chunk_encode.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/write.hpp>

#include "relay/net/tls/tls_stream.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

// The next piece; nothing if it cannot be made.
asio::awaitable<std::optional<std::string>> next_piece(Reply& reply, const Log& log) {
  try {
    co_return co_await reply.body().pieces();
  } catch (const std::exception& failure) {
    log.write("", "", std::string("a reply was cut off: ") + failure.what());
  }
  co_return std::nullopt;
}

}  // namespace

asio::awaitable<bool> write_pieces(TlsStream& stream, Connections::Place& place, Reply& reply,
                                   const Log& log) {
  http::response_serializer<ReplyBody> header(reply);
  place.expires_after(&Limits::handshake);
  const auto [header_error, header_size] = co_await http::async_write_header(stream, header, kAsTuple);
  if (header_error) co_return false;
  for (;;) {
    place.never_expires();
    const auto piece = co_await next_piece(reply, log);
    if (!piece) co_return false;
    place.expires_after(&Limits::handshake);
    if (piece->empty()) {
      const auto last = http::make_chunk_last();
      const auto [error, size] = co_await asio::async_write(stream, last, kAsTuple);
      co_return !error;
    }
    const auto chunk = http::make_chunk(asio::buffer(*piece));
    const auto [error, size] = co_await asio::async_write(stream, chunk, kAsTuple);
    if (error) co_return false;
  }
}

}  // namespace vlk::relay
