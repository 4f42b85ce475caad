// HTTP messages as the relay handles them: small bodies whole in memory, files piece by piece.
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

// A text, or an open file of which only the piece on its way is in memory.
struct ReplyBody {
  struct value_type {
    std::string text;
    boost::beast::file file;
    std::uint64_t file_size = 0;  // bytes
  };
  static std::uint64_t size(const value_type& body) { return body.text.size() + body.file_size; }

  // What the serializer asks for the next piece.
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

// A reply to `request` with the headers that every reply carries.
Reply make_reply(const Request& request, HttpStatus status, std::string_view content_type, std::string body);

// `{"error":sentence}`.
Reply error_reply(const Request& request, HttpStatus status, const std::string& sentence);

// The value of a cookie; empty if there is none.
std::string cookie(const Request& request, std::string_view name);

// False when the request names an origin other than the host that it was sent to: another site's page made
// it.
bool same_origin(const Request& request);

}  // namespace vlk::relay
