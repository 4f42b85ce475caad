// HTTP requests and replies. Text bodies are in memory as a whole; files are read one piece at a time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/asio/buffer.hpp>
#include <boost/beast/core/file.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/optional.hpp>

namespace vlk::relay {

using Request = boost::beast::http::request<boost::beast::http::string_body>;
using HttpStatus = boost::beast::http::status;

// The body of a reply: text, or an open file. Of a file, only the piece being sent is in memory.
struct ReplyBody {
  struct value_type {
    std::string text;
    boost::beast::file file;
    std::uint64_t file_size = 0;  // bytes
  };
  static std::uint64_t size(const value_type& body) { return body.text.size() + body.file_size; }

  // Passes the pieces of the body to the serializer, one after the other.
  class writer {
   public:
    using const_buffers_type = boost::asio::const_buffer;
    template <bool isRequest, class Fields>
    writer(boost::beast::http::header<isRequest, Fields>&, value_type& body)
        : body_(body), left_(body.file_size) {}
    void init(boost::beast::error_code& error) { error = {}; }
    boost::optional<std::pair<const_buffers_type, bool>> get(boost::beast::error_code& error);

   private:
    value_type& body_;
    std::uint64_t left_;
    std::vector<char> piece_;
  };
};
using Reply = boost::beast::http::response<ReplyBody>;

// A reply to `request` with the headers that all replies have.
[[nodiscard]] Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type,
                               std::string body);

// A reply with the body `{"error":sentence}`.
[[nodiscard]] Reply error_reply(const Request& request, HttpStatus status, const std::string& sentence);

// The path of the request's target, without its query.
[[nodiscard]] std::string_view path_of(const Request& request);

// The value of the request's cookie `name`; empty if the request does not have this cookie.
[[nodiscard]] std::string cookie(const Request& request, std::string_view name);

// False if the request's Origin header names a different host from its Host header. Such a request was made
// by a page of another site.
[[nodiscard]] bool same_origin(const Request& request);

}  // namespace vlk::relay
