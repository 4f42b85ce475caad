// Reads requests and writes replies.
#include "relay/http/http_connection.h"

#include <array>
#include <tuple>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/serializer.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/websocket/rfc6455.hpp>

#include "relay/http/pieces.h"
#include "relay/net/tls/tls_stream.h"

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::size_t kUnreadLimit = 64 * 1024;  // bytes that are read after a refused request

class HttpConnection {
 public:
  HttpConnection(TlsStream& stream, Connections::Place& place, const HttpService& service)
      : stream_(stream), place_(place), service_(service) {}

  asio::awaitable<std::unique_ptr<Request>> run() {
    place_.expires_after(&Limits::handshake);
    for (;;) {
      auto request = co_await read();
      if (!request || !service_.identify(*request, place_)) co_return nullptr;
      Reply reply;
      if (beast::websocket::is_upgrade(*request)) {
        if (service_.admit(*request, place_, reply)) co_return request;
      } else {
        // The time that the relay takes does not count against the peer.
        place_.never_expires();
        reply = co_await service_.answer(*request, place_);
      }
      if (request->method() == http::verb::head) reply.body() = {};
      if (!co_await write(reply) || !reply.keep_alive()) co_return nullptr;
      place_.expires_after(&Limits::keep_alive);
    }
  }

 private:
  // Reads one request. Returns null if the connection has ended or the request cannot be read.
  asio::awaitable<std::unique_ptr<Request>> read() {
    http::request_parser<http::string_body> parser;
    parser.header_limit(static_cast<std::uint32_t>(service_.limits.http_header));
    parser.body_limit(service_.limits.http_body);
    auto [error, size] = co_await http::async_read_header(stream_, buffer_, parser, kAsTuple);
    if (!error && !parser.is_done()) {
      // Only a person who has logged in may send much.
      if (!service_.known(parser.get())) parser.body_limit(service_.limits.unauthenticated_message);
      const auto length = parser.content_length();
      if (length && *length > service_.limits.unauthenticated_message && !service_.known(parser.get())) {
        error = http::error::body_limit;
      } else {
        std::size_t more = 0;
        std::tie(error, more) = co_await http::async_read(stream_, buffer_, parser, kAsTuple);
      }
    }
    if (!error) co_return std::make_unique<Request>(parser.release());
    if (size > 0 && error != http::error::end_of_stream) {
      service_.log.write(place_.peer(), "", "bad request: " + error.message());
      co_await refuse(error);
    }
    co_return nullptr;
  }

  // Each piece of the reply has its own time limit, because an installer may take minutes on a slow
  // connection. Returns false if the peer has read nothing for too long or has disconnected.
  asio::awaitable<bool> write(Reply& reply) {
    if (reply.body().pieces) co_return co_await write_pieces(stream_, place_, reply, service_.log);
    http::response_serializer<ReplyBody> rest(reply);
    while (!rest.is_done()) {
      place_.expires_after(&Limits::handshake);
      const auto [error, size] = co_await http::async_write_some(stream_, rest, kAsTuple);
      if (error) co_return false;
    }
    co_return true;
  }

  // Sends a reply to a peer whose request could not be read.
  asio::awaitable<void> refuse(beast::error_code error) {
    Request request;
    request.version(11);
    request.keep_alive(false);
    HttpStatus status = HttpStatus::bad_request;
    if (error == http::error::body_limit) status = HttpStatus::payload_too_large;
    if (error == http::error::header_limit) status = HttpStatus::request_header_fields_too_large;
    Reply reply = error_reply(request, status, "The relay cannot read the request: " + error.message() + '.');
    if (!co_await write(reply)) co_return;
    // A socket that is closed while it has unread bytes makes the system discard the reply at the peer.
    stream_.finish();
    std::array<char, 512> unread{};
    for (std::size_t all = 0; all < kUnreadLimit;) {
      const auto [end, size] = co_await stream_.socket().async_read_some(asio::buffer(unread), kAsTuple);
      if (end) break;
      all += size;
    }
  }

  TlsStream& stream_;
  Connections::Place& place_;
  const HttpService& service_;
  beast::flat_buffer buffer_;
};

}  // namespace

asio::awaitable<std::unique_ptr<Request>> serve_http(TlsStream& stream, Connections::Place& place,
                                                     const HttpService& service) {
  HttpConnection connection(stream, place, service);
  co_return co_await connection.run();
}

}  // namespace vlk::relay
