// Sets up the certificate and the listening socket, and accepts clients.
#include "support/peers/scripted_server.h"

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include "support/peers/descriptor_wait.h"

namespace vantelink_test {
namespace {

using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

}  // namespace

ScriptedServer::ScriptedServer(const TestAuthority& authority) : ScriptedServer(authority, Options{}) {}

ScriptedServer::ScriptedServer(const TestAuthority& authority, const Options& options)
    : context_(SSL_CTX_new(TLS_server_method()), &SSL_CTX_free) {
  // A write to a client that has closed its connection must not end the test.
  std::signal(SIGPIPE, SIG_IGN);
  const TestAuthority::Identity identity =
      options.self_signed ? TestAuthority::issue_self_signed(options.names) : authority.issue(options.names);
  SSL_CTX_use_certificate(context_.get(), identity.certificate.get());
  SSL_CTX_use_PrivateKey(context_.get(), identity.key.get());
  // Security level 0 allows the old versions of TLS, which a test offers and the client must refuse.
  SSL_CTX_set_security_level(context_.get(), 0);
  SSL_CTX_set_min_proto_version(context_.get(), options.lowest_version);
  SSL_CTX_set_max_proto_version(context_.get(), options.highest_version);
  SSL_CTX_set_mode(context_.get(), SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);

  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(listener_, 64) != 0 ||
      ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("the scripted server cannot listen on the loopback address");
  }
  port_ = ntohs(address.sin_port);
}

ScriptedServer::~ScriptedServer() {
  ::close(listener_);
}

bool ScriptedServer::has_client(Milliseconds timeout) {
  return !silent_.empty() || wait_for_descriptor(listener_, POLLIN, Clock::now() + timeout);
}

std::unique_ptr<ServerConnection> ScriptedServer::take() {
  const int socket = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
  return std::make_unique<ServerConnection>(socket, context_.get());
}

std::unique_ptr<ServerConnection> ScriptedServer::accept(Milliseconds timeout) {
  if (!has_client(timeout)) throw std::runtime_error("no client connected in time");
  if (silent_.empty()) return take();
  std::unique_ptr<ServerConnection> first = std::move(silent_.front());
  silent_.erase(silent_.begin());
  return first;
}

std::unique_ptr<ServerConnection> ScriptedServer::accept_active(Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
  while (Clock::now() <= deadline) {
    if (wait_for_descriptor(listener_, POLLIN, Clock::now() + Milliseconds(5))) silent_.push_back(take());
    const auto one =
        std::find_if(silent_.begin(), silent_.end(), [](const auto& c) { return c->has_input(); });
    if (one == silent_.end()) continue;
    std::unique_ptr<ServerConnection> active = std::move(*one);
    silent_.erase(one);
    return active;
  }
  throw std::runtime_error("no client connected and sent anything in time");
}

std::unique_ptr<ServerConnection> ScriptedServer::accept_upgraded(Milliseconds timeout) {
  const Deadline deadline = Clock::now() + timeout;
  for (;;) {
    std::unique_ptr<ServerConnection> connection =
        accept_active(std::chrono::ceil<Milliseconds>(deadline - Clock::now()));
    // The update check of an agent that was killed may still wait in the queue.
    if (!connection->handshake()) continue;
    try {
      if (!connection->read_request().starts_with("GET /version.json ")) {
        connection->accept_upgrade();
        return connection;
      }
      connection->send("HTTP/1.1 404 Not Found\r\n\r\n");
    } catch (const NotAGetRequest&) {
      connection->send("HTTP/1.1 400 Bad Request\r\n\r\n");
    }
    connection->close();
  }
}

}  // namespace vantelink_test
