// Accepts connections and passes each request to the code for its path.
#include "relay/server.h"

#include <array>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/base/source/source.h"
#include "relay/base/version.h"
#include "relay/http/console/embedded_console.h"
#include "relay/links/console_link.h"
#include "relay/net/source/proxy_header.h"
#include "relay/net/tcp/listen.h"
#include "relay/net/tcp/tcp_progress.h"
#include "relay/net/websocket_link.h"
#include "relay/storage/machines/open_sessions.h"
#include "relay/storage/trail/chain.h"

namespace asio = boost::asio;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
// How messages are written. Agents read WebSocket fragments. A browser's scripts see only whole WebSocket
// messages, so long messages are divided into parts. A part with its headers fits into one TLS record, and
// takes 8 seconds at 2 kB/s, so the console sees progress within its time limit.
constexpr Channel::Division kToAgent{false, 64 * 1024};
constexpr Channel::Division kToBrowser{true, 16'000};
// Bytes that the system holds for a peer before it sends them: a record, and the next one while the first is
// sent.
constexpr std::size_t kUnsentBytes = 32 * 1024;
// The pause after a failed accept, for instance when no file descriptor is free.
constexpr std::chrono::milliseconds kAcceptPause{200};
constexpr char kAgentProtocol[] = "vantelink.v1";
constexpr char kConsoleProtocol[] = "vantelink.console.v5";

}  // namespace

Server::Server(const Settings& settings, std::unique_ptr<Store> store, const Log& log, const Limits& limits)
    : console_(settings.console.empty() ? embedded_console() : console_files_in(settings.console)),
      proxies_(settings.proxies),
      proxy_protocol_(settings.proxy_protocol),
      proxy_header_(settings.proxy_header),
      log_(log),
      limits_(limits),
      connections_(limits, log),
      certificate_(settings.certificate, limits.certificate_look, io_.get_executor(), log, settings.own),
      acceptor_(listen(io_.get_executor(), settings.address, settings.port, "--port")),
      database_address_(store->database().address()),
      trail_key_(TrailKey::load_or_make(settings.data)),
      database_(std::move(store), io_.get_executor()),
      trail_keeper_(database_, trail_key_, log),
      trail_reader_(database_address_, trail_key_),
      spools_(std::filesystem::path(settings.data) / "spool", io_.get_executor(),
              {limits.spool, limits.spools}),
      parts_(database_, spools_, log, limits),
      admission_(parts_, log),
      updates_({settings.updates, settings.update_key, limits.update_look,
                [this](TrailEntry row) { parts_.audit.write(std::move(row)); }},
               io_.get_executor(), log),
      monitoring_({connections_, parts_, database_, spools_, log, certificate_, lag_, limits, settings.data},
                  io_.get_executor(),
                  [this] { return acceptor_.is_open() && !stopping_ && !parts_.cluster.draining(); }),
      api_(parts_, admission_, updates_, trail_reader_, log, limits),
      enrolments_(limits.enrolments_per_address, limits.failure_window, limits.counted_keys),
      refusals_(limits.refusals_per_address, limits.failure_window, limits.counted_keys),
      renames_(limits.renames_per_machine, limits.failure_window, limits.counted_keys),
      agent_log_ins_(limits.log_ins_per_machine, limits.failure_window, limits.counted_keys),
      agents_{parts_, admission_, log, limits, enrolments_, refusals_, renames_, agent_log_ins_},
      http_(make_http_service()) {
  const std::string& name = settings.cluster.name;
  parts_.sessions.restore_questions(database_.run_and_wait([&](Store& stored) {
    auto questions = open_questions(stored.database(), wall_milliseconds() - limits.lost_question.count());
    end_open_sessions(stored.database(), name);
    const auto own_name = name.empty() ? std::nullopt : std::optional(name);
    append_trail(stored.database(), std::array{trail_entry<TrailKind::RelayStarted>(
                                        {.actor = kTrailRelay}, kRelayVersion, own_name)});
    return questions;
  }));
  if (!name.empty()) join_cluster(settings.cluster);
  database_.on_outside_change([this] {
    parts_.reload();
    admission_.reload();
    monitoring_.reload();
  });
  database_.on_reach([this](const DatabaseThread::Reach& reach) { log_.write("", "", reach.sentence()); });
  api_.on_status([this] { return monitoring_.status(); });
  if (settings.operators) monitoring_.open(*settings.operators);
  const auto ended = [this](const std::exception_ptr& failure) {
    if (!failure) return;
    failure_ = failure;
    io_.stop();
  };
  asio::co_spawn(io_, accept(), ended);
  asio::co_spawn(io_, tick(), ended);
}

HttpService Server::make_http_service() {
  return {limits_,
          log_,
          [this](const Request& request, Connections::Place& place) { return identify(request, place); },
          [this](const Request& request, const Connections::Place& place) { return answer(request, place); },
          [this](const Request& request, const Connections::Place& place, Reply& refusal) {
            return admit(request, place, refusal);
          },
          [this](const Request& request) { return api_.login_of(request).has_value(); }};
}

unsigned short Server::port() const {
  return acceptor_.local_endpoint().port();
}

asio::awaitable<void> Server::accept() {
  for (;;) {
    auto [error, socket] = co_await acceptor_.async_accept(kAsTuple);
    if (stopping_) co_return;
    if (error) {
      log_.write("", "", "cannot accept a connection: " + error.message());
      asio::steady_timer pause(io_, kAcceptPause);
      co_await pause.async_wait(kAsTuple);
      continue;
    }
    asio::co_spawn(io_, serve(std::move(socket)), asio::detached);
  }
}

asio::awaitable<void> Server::serve(tcp::socket socket) {
  boost::system::error_code error;
  const tcp::endpoint endpoint = socket.remote_endpoint(error);
  if (error) co_return;
  socket.set_option(tcp::no_delay(true), error);
  limit_unsent(socket.native_handle(), kUnsentBytes);
  const std::string peer = text_of(endpoint.address(), endpoint.port());
  // A proxy's connections do not share one source; each gets its own until the proxy has named the real one.
  const bool proxied = is_in(proxies_, endpoint.address());
  const auto place = connections_.admit(proxied ? peer : source_of(endpoint.address()), peer);
  if (!place) co_return log_.write(peer, "", "connection refused: too many are open");
  place->set_proxied(proxied);
  try {
    if (proxied && proxy_protocol_ && !co_await read_proxy_header(socket, *place, log_)) co_return;
    TlsStream stream(std::move(socket), certificate_.context());
    std::optional<Caller> login;
    const auto link = co_await open_link(std::move(stream), *place, login);
    if (link) co_await serve_link(link, *place, login);
  } catch (const std::exception& failure) {
    log_.write(place->peer(), "", failure.what());
  }
}

bool Server::identify(const Request& request, Connections::Place& place) {
  if (proxy_header_.empty() || !place.proxied()) return true;
  const auto value = request.find(proxy_header_);
  if (value == request.end()) return true;
  const auto source = forwarded_source(std::string_view(value->value()), proxies_);
  return !source || place.move(source_of(*source), text_of(*source, 0));
}

asio::awaitable<std::shared_ptr<WebSocketLink>> Server::open_link(TlsStream stream, Connections::Place& place,
                                                                  std::optional<Caller>& login) {
  place.on_cut([stream](const std::string&) mutable { stream.close(); });
  place.expires_after(&Limits::handshake);
  const auto [error] = co_await stream.async_handshake(kAsTuple);
  if (error) {
    ++parts_.counters.failed_handshakes;
    log_.write(place.peer(), "", "TLS handshake failed: " + error.message());
    co_return nullptr;
  }
  const auto request = co_await serve_http(stream, place, http_);
  if (!request) {
    stream.finish();
    co_return nullptr;
  }
  const bool agent = path_of(*request) == "/link";
  if (!agent) login = api_.full_login_of(*request).value();
  WebSocketLink::Settings settings{agent ? kAgentProtocol : kConsoleProtocol, limits_.queue_bytes,
                                   agent ? kToAgent : kToBrowser, limits_.handshake};
  std::string problem;
  place.expires_after(&Limits::handshake);
  auto link = co_await WebSocketLink::accept(stream, std::move(*request), std::move(settings), problem);
  if (!link) log_.write(place.peer(), "", "WebSocket upgrade failed: " + problem);
  co_return link;
}

asio::awaitable<void> Server::serve_link(std::shared_ptr<WebSocketLink> link, Connections::Place& place,
                                         const std::optional<Caller>& login) {
  place.never_expires();
  place.on_cut([channel = link->channel()](const std::string& reason) { channel->cut(reason); });
  if (!login) co_return co_await serve_agent(agents_, std::move(link), place);
  if (!place.rise(Standing::Known)) {
    co_return link->channel()->close(CloseCode::PolicyViolation, "too many connections");
  }
  const auto console = std::make_shared<ConsolePeer>();
  console->address = place.peer();
  console->representative = login->name;
  console->person = login->person;
  console->login = login->token_hash;
  console->view = parts_.view_of(console->person);
  co_await serve_console(parts_, limits_, std::move(link), console);
}

asio::awaitable<Reply> Server::answer(const Request& request, const Connections::Place& place) {
  const std::string_view path = path_of(request);
  if (path.starts_with("/api/")) co_return co_await api_.answer(request, place.peer(), place.source());
  if (path == "/link" || path == "/console") {
    co_return error_reply(request, HttpStatus::upgrade_required, "This path is for WebSockets.");
  }
  if (names_update(path)) co_return updates_.answer(request, place.peer());
  co_return console_.answer(request);
}

bool Server::admit(const Request& request, const Connections::Place& place, Reply& refusal) {
  const std::string_view path = path_of(request);
  const auto refuse = [&](HttpStatus status, const char* log_line, const char* sentence) {
    if (log_line) log_.write(place.peer(), "", log_line);
    refusal = error_reply(request, status, sentence);
    return false;
  };
  if (path == "/link") {
    // Agents send no Origin; a page in a browser cannot leave it out.
    if (request.find(http::field::origin) == request.end()) return true;
    return refuse(HttpStatus::forbidden, "refused a page's WebSocket for agents",
                  "This path is for agents, not for pages.");
  }
  if (path != "/console")
    return refuse(HttpStatus::not_found, nullptr, "There is no WebSocket on this path.");
  if (!from_own_page(request)) {
    return refuse(HttpStatus::forbidden, "refused a browser's WebSocket from another origin",
                  "The request did not come from the console's page.");
  }
  if (api_.full_login_of(request)) return true;
  return refuse(HttpStatus::unauthorized, "refused a browser's WebSocket without a log-in", "Please log in.");
}

}  // namespace vlk::relay
