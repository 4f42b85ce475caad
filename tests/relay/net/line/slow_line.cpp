// Accepts connections, gives each packet its time of arrival, and writes it then.
#include "relay/net/line/slow_line.h"

#include <netinet/tcp.h>

#include <algorithm>
#include <array>
#include <deque>
#include <string>
#include <utility>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/redirect_error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/asio/write.hpp>

namespace vlk::relay {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;
using Clock = std::chrono::steady_clock;
using Done = asio::awaitable<void>;

constexpr int kBuffer = 16 * 1024;

void limit_buffers(tcp::socket& socket) {
  error_code ignored;
  socket.set_option(asio::socket_base::send_buffer_size(kBuffer), ignored);
  socket.set_option(tcp::no_delay(true), ignored);
}

// Before a socket connects or listens. The small segments make the loopback's windows move in steps of a
// packet.
template <typename Socket>
void limit_arrivals(Socket& socket) {
  using Segment = asio::detail::socket_option::integer<IPPROTO_TCP, TCP_MAXSEG>;
  socket.set_option(asio::socket_base::receive_buffer_size(kBuffer));
  socket.set_option(Segment(kPacketBytes));
}

struct Packet {
  LineTime arrival;   // if it need not wait for the packets before it
  std::string bytes;  // empty at the end of the stream
};

// One direction of one connection.
struct Way {
  Way(tcp::socket& its_source, tcp::socket& its_target, LineModel& its_model)
      : source(its_source),
        target(its_target),
        model(its_model),
        added(source.get_executor()),
        taken(source.get_executor()) {}

  tcp::socket& source;
  tcp::socket& target;
  LineModel& model;
  asio::steady_timer added;  // cancelled when a packet was added
  asio::steady_timer taken;  // cancelled when packets were delivered
  std::deque<Packet> packets;
  std::size_t held = 0;  // bytes in `packets`
  LineTime held_until;
};

struct Connection {
  Connection(tcp::socket its_client, LineModel& up, LineModel& down)
      : client(std::move(its_client)),
        server(client.get_executor()),
        to_server(client, server, up),
        to_client(server, client, down) {}

  tcp::socket client;
  tcp::socket server;
  Way to_server;
  Way to_client;
};

using Shared = std::shared_ptr<Connection>;

Done wait_until(asio::steady_timer& timer, LineTime time) {
  error_code ignored;
  timer.expires_at(time);
  co_await timer.async_wait(asio::redirect_error(asio::use_awaitable, ignored));
}

// The time from which the connection may send its next packet; the past if it may send now.
LineTime next_packet(const Way& way) {
  return std::max(way.held_until, way.model.accepts_at());
}

void add(Way& way, std::string bytes) {
  const auto [arrival, held_until] = way.model.send(bytes.size(), Clock::now());
  way.held_until = held_until;
  way.held += bytes.size();
  way.packets.push_back({arrival, std::move(bytes)});
  way.added.cancel();
}

// Reads no packet before the line accepts it, so the peer's system is held back as by a full queue.
Done read_packets(Shared connection, Way Connection::*direction) {
  Way& way = (*connection).*direction;
  asio::steady_timer timer(way.source.get_executor());
  std::array<char, kPacketBytes> buffer;
  error_code error;
  while (!error) {
    while (next_packet(way) > Clock::now())
      co_await wait_until(timer, next_packet(way));
    while (way.held > way.model.capacity())
      co_await wait_until(way.taken, LineTime::max());
    const auto room = asio::buffer(buffer);
    const std::size_t count =
        co_await way.source.async_read_some(room, asio::redirect_error(asio::use_awaitable, error));
    add(way, std::string(buffer.data(), count));
  }
}

Done write_packets(Shared connection, Way Connection::*direction) {
  Way& way = (*connection).*direction;
  error_code error;
  for (bool ended = false; !ended;) {
    while (way.packets.empty() || way.packets.front().arrival > Clock::now())
      co_await wait_until(way.added, way.packets.empty() ? LineTime::max() : way.packets.front().arrival);
    std::string bytes;
    for (const LineTime now = Clock::now();
         !ended && !way.packets.empty() && way.packets.front().arrival <= now; way.packets.pop_front()) {
      ended = way.packets.front().bytes.empty();
      bytes += way.packets.front().bytes;
    }
    const auto content = asio::buffer(bytes);
    // What arrives at a closed socket is dropped.
    if (!error)
      co_await asio::async_write(way.target, content, asio::redirect_error(asio::use_awaitable, error));
    way.held -= bytes.size();
    way.taken.cancel();
  }
  way.target.shutdown(tcp::socket::shutdown_send, error);
}

}  // namespace

struct SlowLine::Wire {
  Wire(unsigned short its_port, const LineRules& its_rules)
      : target(asio::ip::address_v4::loopback(), its_port), rules(its_rules), up(rules, 1), down(rules, 2) {
    acceptor.open(tcp::v4());
    limit_arrivals(acceptor);
    acceptor.bind({asio::ip::address_v4::loopback(), 0});
    acceptor.listen();
    asio::co_spawn(io, accept(), asio::detached);
  }

  Done accept() {
    for (;;) {
      error_code error;
      tcp::socket client = co_await acceptor.async_accept(asio::redirect_error(asio::use_awaitable, error));
      if (error) co_return;
      limit_buffers(client);
      asio::co_spawn(io, connect(std::make_shared<Connection>(std::move(client), up, down)), asio::detached);
    }
  }

  // The client's system has connected at once. A real one waits for a request and its answer.
  Done connect(Shared connection) {
    asio::steady_timer timer(io);
    co_await wait_until(timer, up.request_passes(Clock::now()) + 2 * rules.delay);
    tcp::socket& server = connection->server;
    server.open(tcp::v4());
    limit_arrivals(server);
    error_code error;
    co_await server.async_connect(target, asio::redirect_error(asio::use_awaitable, error));
    if (error) co_return;
    limit_buffers(server);
    for (const auto direction : {&Connection::to_server, &Connection::to_client}) {
      asio::co_spawn(io, read_packets(connection, direction), asio::detached);
      asio::co_spawn(io, write_packets(connection, direction), asio::detached);
    }
  }

  const tcp::endpoint target;
  const LineRules rules;
  LineModel up;
  LineModel down;
  asio::io_context io;
  tcp::acceptor acceptor{io};
};

SlowLine::SlowLine(unsigned short port, const LineRules& rules)
    : wire_(std::make_unique<Wire>(port, rules)), thread_([this] { wire_->io.run(); }) {}

SlowLine::~SlowLine() {
  wire_->io.stop();
  thread_.join();
}

unsigned short SlowLine::port() const {
  return wire_->acceptor.local_endpoint().port();
}

}  // namespace vlk::relay
