// Reads the requests with Boost.Beast.
#include "relay/metrics/operators_port.h"

#include <array>
#include <charconv>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>

#include "relay/base/source/source.h"
#include "relay/net/source/proxies.h"
#include "relay/net/tcp/listen.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr std::size_t kUnreadLimit = 64 * 1024;  // bytes that are read after a reply
constexpr const char* kPrivate[] = {"127.0.0.0/8",    "10.0.0.0/8", "172.16.0.0/12", "192.168.0.0/16",
                                    "169.254.0.0/16", "::1",        "fc00::/7",      "fe80::/10"};

using Reply = http::response<http::string_body>;

Reply reply_of(OperatorsPort::Answer answer, bool head) {
  Reply reply(http::int_to_status(answer.status), 11);
  reply.set(http::field::content_type, answer.type);
  reply.set(http::field::cache_control, "no-store");
  reply.set("X-Content-Type-Options", "nosniff");
  reply.keep_alive(false);
  reply.body() = std::move(answer.text);
  reply.prepare_payload();
  if (head) reply.body().clear();
  return reply;
}

// Whether a request has arrived that is not valid, rather than the connection ended.
bool is_malformed(const boost::system::error_code& error) {
  return error.category() == http::make_error_code(http::error::bad_method).category() &&
         error != http::error::end_of_stream;
}

OperatorsPort::Answer unreadable(const boost::system::error_code& error) {
  const bool large = error == http::error::header_limit || error == http::error::buffer_overflow;
  return {large ? 431u : 400u, "The relay cannot read the request: " + error.message() + ".\n"};
}

// A socket that is closed while it has unread bytes makes the system discard the reply at the peer.
asio::awaitable<void> close_politely(tcp::socket& socket) {
  boost::system::error_code ignored;
  socket.shutdown(tcp::socket::shutdown_send, ignored);
  std::array<char, 512> unread{};
  for (std::size_t all = 0; all < kUnreadLimit;) {
    const auto [end, size] = co_await socket.async_read_some(asio::buffer(unread), kAsTuple);
    if (end) break;
    all += size;
  }
}

}  // namespace

std::optional<OperatorsAddress> parse_operators_address(std::string_view text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  std::string_view host = text.substr(0, colon);
  const std::string_view digits = text.substr(colon + 1);
  const bool brackets = host.starts_with('[') && host.ends_with(']');
  if (brackets) host = host.substr(1, host.size() - 2);
  boost::system::error_code error;
  const auto address = asio::ip::make_address(std::string(host), error);
  if (error || address.is_v6() != brackets) return std::nullopt;
  OperatorsAddress where{address};
  const auto [stop, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), where.port);
  if (fault != std::errc() || stop != digits.data() + digits.size()) return std::nullopt;
  return where;
}

bool is_private(const asio::ip::address& address) {
  static const std::vector<Network> networks = [] {
    std::vector<Network> all;
    for (const char* network : kPrivate)
      all.push_back(parse_network(network).value());
    return all;
  }();
  return is_in(networks, address);
}

struct OperatorsPort::Connection {
  explicit Connection(tcp::socket its_socket)
      : socket(std::move(its_socket)), deadline(socket.get_executor()) {}
  void close() {
    boost::system::error_code ignored;
    socket.close(ignored);
  }

  tcp::socket socket;
  asio::steady_timer deadline;
};

OperatorsPort::OperatorsPort(const asio::any_io_executor& executor, const OperatorsAddress& where,
                             Answerer answer, const Log& log, const Limits& limits)
    : answer_(std::move(answer)),
      log_(log),
      limits_(limits),
      acceptor_(listen(executor, where.address.to_string(), where.port, "--metrics")) {
  asio::co_spawn(acceptor_.get_executor(), accept(), asio::detached);
}

void OperatorsPort::stop() {
  boost::system::error_code ignored;
  acceptor_.close(ignored);
  for (const auto& entry : open_) {
    if (const auto connection = entry.lock()) connection->close();
  }
}

asio::awaitable<void> OperatorsPort::accept() {
  while (acceptor_.is_open()) {
    auto [error, socket] = co_await acceptor_.async_accept(kAsTuple);
    if (!acceptor_.is_open()) co_return;
    if (error) {
      log_.write("", "", "cannot accept a connection of an operator: " + error.message());
      asio::steady_timer pause(acceptor_.get_executor(), kAcceptPause);
      co_await pause.async_wait(kAsTuple);
      continue;
    }
    make_room();
    const auto connection = std::make_shared<Connection>(std::move(socket));
    open_.push_back(connection);
    asio::co_spawn(acceptor_.get_executor(), serve(connection), asio::detached);
  }
}

void OperatorsPort::make_room() {
  std::erase_if(open_, [](const auto& entry) { return entry.expired(); });
  if (open_.size() < kMostConnections) return;
  if (const auto oldest = open_.front().lock()) oldest->close();
  open_.pop_front();
}

asio::awaitable<void> OperatorsPort::serve(std::shared_ptr<Connection> connection) {
  tcp::socket& socket = connection->socket;
  connection->deadline.expires_after(limits_.operators_request);
  connection->deadline.async_wait([open = std::weak_ptr(connection)](const boost::system::error_code& error) {
    const auto late = open.lock();
    if (!error && late) late->close();
  });
  boost::beast::flat_buffer buffer(kMostRequest);
  http::request_parser<http::empty_body> parser;
  parser.header_limit(kMostRequest);
  const auto [error, size] = co_await http::async_read_header(socket, buffer, parser, kAsTuple);
  if (error && !is_malformed(error)) co_return;
  Answer answer = unreadable(error);
  const http::verb method = parser.get().method();
  if (!error && method != http::verb::get && method != http::verb::head) {
    answer = {405, "Only GET and HEAD are possible here.\n"};
  } else if (!error) {
    const std::string_view target(parser.get().target());
    std::string path(target.substr(0, target.find('?')));
    answer = co_await answer_(std::move(path));
  }
  Reply reply = reply_of(std::move(answer), method == http::verb::head);
  const auto [failure, written] = co_await http::async_write(socket, reply, kAsTuple);
  if (!failure) co_await close_politely(socket);
}

}  // namespace vlk::relay
