// HTTP requests and replies. The bodies are in memory as a whole.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/optional.hpp>

namespace vlk::relay {

using Request = boost::beast::http::request<boost::beast::http::string_body>;
using HttpStatus = boost::beast::http::status;

// The body of a reply: text of its own, or bytes that many replies share.
struct ReplyBody {
  struct value_type {
    std::string text;
    std::shared_ptr<const std::string> shared;  // sent instead of `text`, unless it is null
    // For a body that is made while it is sent: the next piece, or an empty text after the last one.
    std::function<boost::asio::awaitable<std::string>()> pieces{};

    [[nodiscard]] const std::string& bytes() const { return shared ? *shared : text; }
  };
  static std::uint64_t size(const value_type& body) { return body.bytes().size(); }

  // Passes the body to the serializer in one piece.
  class writer {
   public:
    using const_buffers_type = boost::asio::const_buffer;
    template <bool isRequest, class Fields>
    writer(const boost::beast::http::header<isRequest, Fields>&, const value_type& body) : body_(body) {}
    void init(boost::beast::error_code& error) { error = {}; }
    boost::optional<std::pair<const_buffers_type, bool>> get(boost::beast::error_code& error) {
      error = {};
      return {{boost::asio::buffer(body_.bytes()), false}};
    }

   private:
    const value_type& body_;
  };
};
using Reply = boost::beast::http::response<ReplyBody>;

// A reply to `request` with the headers that all replies have. No cache stores it, unless the caller sets
// another Cache-Control.
[[nodiscard]] Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type,
                               std::string body);

// A reply with the body `{"error":sentence}`.
[[nodiscard]] Reply error_reply(const Request& request, HttpStatus status, const std::string& sentence);

// The path of the request's target, without its query.
[[nodiscard]] std::string_view path_of(const Request& request);

// The value of the request's cookie `name`; empty if the request does not have this cookie.
[[nodiscard]] std::string cookie(const Request& request, std::string_view name);

// True if the request's Origin header names the host of its Host header. A browser sends the origin of the
// page with each request that may change something and with each WebSocket upgrade, so a request without the
// header was not made by the console.
[[nodiscard]] bool from_own_page(const Request& request);

}  // namespace vlk::relay
