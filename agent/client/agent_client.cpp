// The connection thread: connect, upgrade, authenticate, read frames, reconnect.
#include "client/agent_client.h"

#include <algorithm>
#include <utility>

#include "client/link_state.h"
#include "clipboard/watch.h"
#include "config/machine_guid.h"
#include "input/injector.h"
#include "platform/threads/start_thread.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

constexpr char kLinkPath[] = "/link";
// This version is only sent to the server. Updates compare another version, kUpdateVersion.
constexpr char kClientVersion[] = "0.1.0-scaffold";
constexpr std::size_t kReadSize = 2048;        // bytes per read
constexpr std::int64_t kFirstDelay = 500;      // milliseconds, between two attempts
constexpr std::int64_t kLongestDelay = 30000;  // milliseconds
constexpr std::int64_t kNanosecondsPerMillisecond = 1000000;

}  // namespace

AgentClient::AgentClient(AgentConfig config, AgentCallbacks callbacks, Clock clock)
    : config_(std::move(config)),
      callbacks_(std::move(callbacks)),
      link_(std::make_shared<LinkState>()),
      clock_(std::move(clock)) {
  start_sockets();
  link_->ssl_ctx = build_tls_context();
}

AgentClient::~AgentClient() {
  stop();
  link_.reset();
  end_sockets();
}

void AgentClient::start() {
  if (running_.exchange(true)) return;
  run_thread_ = start_thread([this] { run(); });
}

void AgentClient::stop() {
  running_ = false;
  link_->socket.interrupt();
  if (run_thread_.joinable()) run_thread_.join();
}

bool AgentClient::send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
                       std::uint8_t flags) {
  return link_->send(type, session_id, data, length, flags);
}

bool AgentClient::send_text(Msg type, std::uint32_t session_id, std::string_view text) {
  return send(type, session_id, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
              kJsonPayload);
}

void AgentClient::send_clipboard(const unsigned char* data, std::size_t length) {
  const std::uint32_t session = streaming_session_;
  if (session == 0) return;
  send(Msg::ClipboardData, session, data, length, kBinaryPayload);
}

void AgentClient::accept_session(std::uint32_t session) {
  send_text(Msg::SessionAccept, session, JsonWriter().add_int("session", session).finish());
}

void AgentClient::reject_session(std::uint32_t session, std::string_view reason) {
  send_text(Msg::SessionReject, session,
            JsonWriter().add_int("session", session).add_string("reason", reason).finish());
}

void AgentClient::set_display_name(std::string name) {
  const std::string text = JsonWriter().add_string("name", name).finish();
  {
    const MutexLock lock(config_lock_);
    config_.display_name = std::move(name);
  }
  send_text(Msg::NameUpdate, 0, text);
}

void AgentClient::set_unattended(bool unattended) {
  const MutexLock lock(config_lock_);
  config_.unattended = unattended;
}

void AgentClient::run() {
  connection_thread_.rebind();
  std::int64_t delay = kFirstDelay;
  while (running_) {
    report_status(Status::Connecting, 0);
    const bool ok = run_connection();
    report_status(Status::Offline, 0);
    if (!running_) return;
    clock_.sleep_until(clock_.now() + delay * kNanosecondsPerMillisecond);
    // The delay is changed after the sleep. The first wait after a connection therefore still has the length
    // that the failures before the connection led to, so that not all agents return to a restarted server at
    // once.
    delay = ok ? kFirstDelay : std::min(2 * delay, kLongestDelay);
  }
}

bool AgentClient::run_connection() {
  const auto [host, port] = [this] {
    const MutexLock lock(config_lock_);
    return server_address(config_);
  }();
  const SocketHandle socket = connect_socket(host, port);
  if (socket == kInvalidSocket) return false;
  send_at_once(socket);
  link_->socket.set(socket);

  auto connection = std::make_unique<TlsConnection>(link_->ssl_ctx.get(), socket, host);
  if (!connection->connect()) {
    connection.reset();
    link_->socket.close();
    return false;
  }
  link_->incoming = connection.get();
  {
    const MutexLock lock(link_->write_lock);
    link_->ssl = std::move(connection);
  }
  if (!upgrade(host)) {
    drop_tls();
    link_->socket.close();
    return false;
  }
  authenticate();
  report_status(Status::Connecting, 0);
  if (running_) read_frames();
  end_connection();
  return true;
}

bool AgentClient::upgrade(const std::string& host) {
  std::string key;
  const std::string request = build_upgrade_request(host, kLinkPath, key);
  // A failure to write shows in the read below.
  (void)link_->incoming->write(reinterpret_cast<const unsigned char*>(request.data()), request.size());

  constexpr std::string_view kBlankLine = "\r\n\r\n";
  std::string response;
  std::size_t end = std::string::npos;
  while (end == std::string::npos) {
    unsigned char buffer[kReadSize];
    const std::ptrdiff_t count = link_->incoming->read(buffer, sizeof buffer);
    if (count < 1) return false;
    const std::size_t searched =
        response.size() < kBlankLine.size() ? 0 : response.size() - kBlankLine.size() + 1;
    response.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(count));
    end = response.find(kBlankLine, searched);
  }
  if (!upgrade_accepted(response)) return false;

  link_->parser = WsParser();
  const std::string_view rest = std::string_view(response).substr(end + kBlankLine.size());
  link_->parser.feed(reinterpret_cast<const unsigned char*>(rest.data()), rest.size());
  return true;
}

void AgentClient::authenticate() {
  send_text(Msg::Hello, 0,
            JsonWriter()
                .add_string("role", "agent")
                .add_string("client_version", kClientVersion)
                .add_string("os", "windows")
                .finish());
  std::string name, id, secret;
  {
    const MutexLock lock(config_lock_);
    name = config_.display_name;
    id = config_.agent_id;
    secret = config_.agent_secret;
  }
  if (id.empty() || secret.empty()) {
    send_text(Msg::Enroll, 0,
              JsonWriter()
                  .add_string("name", name)
                  .add_string("machine_name", name)
                  .add_string("os", "windows")
                  .add_string("hw_id", read_machine_guid())
                  .finish());
    return;
  }
  send_text(
      Msg::Login, 0,
      JsonWriter().add_string("agent_id", id).add_string("secret", secret).add_string("name", name).finish());
}

void AgentClient::read_frames() {
  do {
    unsigned char buffer[kReadSize];
    const std::ptrdiff_t count = link_->incoming->read(buffer, sizeof buffer);
    if (count < 1) return;
    link_->parser.feed(buffer, static_cast<std::size_t>(count));
    while (const std::optional<WsFrame> frame = link_->parser.next()) {
      if (!handle_frame(frame->opcode, frame->payload)) return;
    }
  } while (!link_->parser.failed && running_);
}

bool AgentClient::handle_frame(std::uint8_t opcode, const std::vector<std::uint8_t>& payload) {
  switch (opcode) {
    case kWsClose:
      return false;
    case kWsPing: {
      const std::vector<std::uint8_t> pong = encode_frame(kWsPong, payload.data(), payload.size(), true);
      link_->write_locked(pong.data(), pong.size());
      return true;
    }
    case kWsBinary: {
      Envelope envelope;
      return !decode_envelope(payload.data(), payload.size(), envelope) || dispatch(envelope);
    }
    default:
      return true;
  }
}

void AgentClient::end_connection() {
  connection_thread_.check();
  if (link_->streamer) {
    link_->streamer->Stop();
    link_->streamer.reset();
  }
  SetInputSessionActive(false);
  SetClipboardSessionActive(false);
  streaming_session_ = 0;
  {
    const MutexLock lock(sessions_lock_);
    active_sessions_.clear();
  }
  std::unique_ptr<TlsConnection> connection = drop_tls();
  connection->shutdown();
  connection.reset();  // destroyed before its socket is closed
  link_->socket.close();
}

std::unique_ptr<TlsConnection> AgentClient::drop_tls() {
  link_->incoming = nullptr;
  const MutexLock lock(link_->write_lock);
  return std::move(link_->ssl);
}

void AgentClient::report_status(Status status, int count) {
  if (callbacks_.on_status) callbacks_.on_status(status, count);
}

}  // namespace vlk::agent
