// The relay's server: listens on one TLS port and serves each path on it.
#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/awaitable.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include "relay/admission/admission.h"
#include "relay/base/memory/memory_trim.h"
#include "relay/http/console/console_files.h"
#include "relay/http/http_connection.h"
#include "relay/http/routes.h"
#include "relay/http/updates/updates.h"
#include "relay/links/agent_link.h"
#include "relay/metrics/monitoring.h"
#include "relay/net/connections.h"
#include "relay/net/source/proxies.h"
#include "relay/net/tls/live_certificate.h"
#include "relay/net/tls/tls_stream.h"
#include "relay/session/trail/trail_keeper.h"
#include "relay/storage/follow/follower.h"
#include "relay/storage/trail/reader.h"

namespace vlk::relay {

class WebSocketLink;

// Everything runs on the one thread that calls run(), except the hashing of passwords and the work on the
// database and the spool.
class Server {
 public:
  struct Settings {
    std::string address = "127.0.0.1";
    unsigned short port = 0;  // 0 means any free port
    std::string data;         // folder of the keys and the spool
    std::string console;      // folder of the console's files; empty for those in the program
    std::string updates;      // folder of the agents' updates; need not exist
    std::string update_key;   // public key of the updates; without it none is offered
    CertificateFiles certificate;
    std::shared_ptr<OwnCertificate> own;  // prepared; null if `certificate` has an operator's files
    // Proxies that name the real source of a connection: by the PROXY protocol, version 2, or in this header
    // of each request. At most one of the two is used.
    std::vector<Network> proxies;
    bool proxy_protocol = false;
    std::string proxy_header;
    Cluster::Settings cluster;                  // without a name for a single relay
    std::optional<OperatorsAddress> operators;  // the port for operators; none if it is not set
  };
  // Opens the port. `log` and `limits` outlive the server. Throws std::runtime_error with a sentence for the
  // operator.
  Server(const Settings& settings, std::unique_ptr<Store> store, const Log& log, const Limits& limits);

  [[nodiscard]] unsigned short port() const;
  // Serves until stop(). Returns when all that was given to the database is stored. Logs and throws
  // what ended the accepting of connections or the checks of the time limits; the relay cannot work without
  // either.
  void run();
  // Closes all connections, then makes run() return. Callable from any thread and from a signal handler of
  // context().
  void stop();
  // Moves the machines to the other relays that share the database. Callable like stop().
  void drain();
  [[nodiscard]] boost::asio::io_context& context() { return io_; }
  // The number of connections that are open or have not been cleared away yet.
  [[nodiscard]] std::size_t connections() const { return connections_.size(); }
  [[nodiscard]] DatabaseThread& database() { return database_; }

  // Copies the rows of the trail to a sink for log collectors. Throws DatabaseError.
  void follow_trail(std::unique_ptr<TrailSink> sink);
  // What operators see; to be used on the relay's thread.
  [[nodiscard]] const Monitoring& monitoring() const { return monitoring_; }

  // Makes the sinks open their files again.
  void reopen_trail_logs();
  // Reads the files of the certificate again. The relay also does so by itself when they change.
  void reload_certificate() { certificate_.reload(); }

 private:
  // What serve_http() needs of this server.
  [[nodiscard]] HttpService make_http_service();
  void join_cluster(const Cluster::Settings& settings);
  boost::asio::awaitable<void> accept();
  boost::asio::awaitable<void> tick();
  boost::asio::awaitable<void> serve(boost::asio::ip::tcp::socket socket);
  // Finds the source of a request that a trusted proxy has passed on.
  [[nodiscard]] bool identify(const Request& request, Connections::Place& place);
  // Completes the handshake and serves requests. Returns the link of an upgraded connection, or null at its
  // end. `login` is set for a browser only.
  boost::asio::awaitable<std::shared_ptr<WebSocketLink>> open_link(TlsStream stream,
                                                                   Connections::Place& place,
                                                                   std::optional<Caller>& login);
  // Serves an agent's or a browser's WebSocket until its connection ends.
  boost::asio::awaitable<void> serve_link(std::shared_ptr<WebSocketLink> link, Connections::Place& place,
                                          const std::optional<Caller>& login);
  boost::asio::awaitable<Reply> answer(const Request& request, const Connections::Place& place);
  // Checks an upgrade request. If it is refused, returns false and puts the reply into `refusal`.
  [[nodiscard]] bool admit(const Request& request, const Connections::Place& place, Reply& refusal);

  const ConsoleFiles console_;
  const std::vector<Network> proxies_;
  const bool proxy_protocol_;
  const std::string proxy_header_;
  const Log& log_;
  const Limits& limits_;
  Connections connections_;  // outlives the coroutines, which io_ owns
  boost::asio::io_context io_{1};
  LiveCertificate certificate_;
  boost::asio::ip::tcp::acceptor acceptor_;
  const std::string database_address_;
  const TrailKey trail_key_;
  DatabaseThread database_;
  TrailKeeper trail_keeper_;
  TrailReader trail_reader_;
  Spools spools_;
  Parts parts_;
  Admission admission_;
  Updates updates_;
  LoopLag lag_;
  Monitoring monitoring_;
  HttpApi api_;
  std::vector<std::unique_ptr<TrailFollower>> trail_followers_;
  RateCounter enrolments_;
  RateCounter refusals_;
  RateCounter renames_;
  RateCounter agent_log_ins_;
  AgentContext agents_;
  const HttpService http_;
  std::exception_ptr failure_;
  MemoryTrim memory_trim_;
  bool stopping_ = false;
};

}  // namespace vlk::relay
