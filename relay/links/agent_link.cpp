// The relay's side of an agent's connection. Bytes that arrive together with the upgrade response are handled
// by the agent only after its next read, so the relay sends nothing before the agent's hello.
#include "relay/links/agent_link.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"
#include "relay/links/intake.h"
#include "relay/net/websocket_link.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kIdBytes = 16;
constexpr std::size_t kSecretBytes = 32;
// Shorter than the default, because after a refused log-in the agent deletes its identity and connects again
// to enrol.
constexpr std::chrono::milliseconds kRefusalDeadline{1000};

bool is_picture(Msg type) {
  return type == Msg::StreamConfig || type == Msg::StreamFrame || type == Msg::Thumbnail;
}

// A message in the queue of a browser.
struct Held {
  Bytes message;
  MemoryBudget::Claim claim;
};

class AgentConnection {
 public:
  AgentConnection(AgentContext& context, WebSocketLink& link, std::shared_ptr<AgentPeer> peer,
                  std::string source)
      : context_(context),
        parts_(context.parts),
        link_(link),
        channel_(*peer->channel),
        peer_(std::move(peer)),
        source_(std::move(source)),
        intake_(context.parts.router, *peer_, [this](const std::string& text) { log(text); }) {}

  asio::awaitable<void> run() {
    link_.set_read_limit(context_.limits.unauthenticated_message);
    link_.on_arrival([this](Incoming& incoming) { return intake_.keep(incoming); });
    while (auto incoming = co_await link_.read()) {
      MemoryBudget::Claim claim = intake_.take_claim();
      const Route route = intake_.route(*incoming);
      switch (route.kind) {
        case Route::Kind::Malformed:
          channel_.close(CloseCode::UnsupportedData, "not an envelope");
          break;
        case Route::Kind::ForRelay:
          handle(route.header, incoming->bytes);
          break;
        case Route::Kind::Forward:
          co_await forward(route, std::move(incoming->bytes), std::move(claim));
          break;
        case Route::Kind::Swallow:
        case Route::Kind::Refuse:
          log_once(route.reason);
          break;
      }
    }
  }

 private:
  void log(const std::string& text) { context_.log.write(peer_->address, peer_->id, text); }

  // Logs only the first dropped message of each connection, so that an agent cannot fill the log.
  void log_once(const std::string& text) {
    if (text.empty() || std::exchange(drop_logged_, true)) return;
    log(text);
  }

  // Whether the browser has not read the messages, or not stored the downloads, that were sent to it.
  [[nodiscard]] bool browser_is_behind(const Route& route) const {
    const Session* session = parts_.sessions.find(route.header.session);
    if (!session) return false;
    if (route.to->full()) return true;
    // While the relay does not read from the browser, it also does not receive what the browser has stored.
    // Both sides would wait for each other if the machine were not read until then.
    return parts_.transfers.ahead_of_browser(route.header.session) && !session->console->paused;
  }

  // Sends a message to the browser that owns its session. While that browser does not read, the relay does
  // not read from the agent. The agent's writes then block, and the relay's memory stays bounded.
  //
  // Only pictures overtake a large message: the browser needs them at once, and they do not depend on the
  // order.
  asio::awaitable<void> forward(Route route, Bytes message, MemoryBudget::Claim claim) {
    const std::uint32_t session = route.header.session;
    if (route.key_frame_needed) request_key_frame(session);
    const bool picture = is_picture(route.header.type);
    if (!picture) {
      co_await wait_while(route, [&] { return route.to->has_bulk(session); });
      if (!parts_.sessions.find(session)) co_return;
    }
    const bool bulk = !picture && message.size() > context_.limits.bulk_message;
    const auto held = std::make_shared<const Held>(Held{std::move(message), std::move(claim)});
    const std::shared_ptr<const Bytes> bytes(held, &held->message);
    if (bulk) {
      route.to->send_bulk(bytes, session);
    } else {
      route.to->send_binary(bytes, session);
    }
    co_await wait_while(route, [&] { return browser_is_behind(route); });
  }

  // The wait ends with the session, so that a machine can be used again after its browser was too slow.
  template <class Condition>
  asio::awaitable<void> wait_while(const Route& route, Condition condition) {
    if (!condition()) co_return;
    peer_->paused = true;
    while (condition() && !route.to->closing() && parts_.sessions.find(route.header.session))
      co_await route.to->wait_for_change();
    peer_->paused = false;
    channel_.count_as_heard(Clock::now());
  }

  void request_key_frame(std::uint32_t session) {
    log("the H.264 stream has reordered pictures; a key frame is requested");
    channel_.send_binary(json_envelope(Msg::KeyframeRequest, session, "{}"));
  }

  // Handles a message that is addressed to the relay itself.
  void handle(const EnvelopeHeader& header, const Bytes& message) {
    if (peer_->id.empty()) return authenticate(header.type, message);
    struct MessageHandler {
      Msg code;
      void (AgentConnection::*handle)(const EnvelopeHeader&, const Bytes&);
    };
    static constexpr MessageHandler kHandlers[] = {
        {Msg::Hello, &AgentConnection::on_second_log_in},
        {Msg::Heartbeat, &AgentConnection::on_heartbeat},
        {Msg::Enroll, &AgentConnection::on_second_log_in},
        {Msg::Login, &AgentConnection::on_second_log_in},
        {Msg::NameUpdate, &AgentConnection::on_name_update},
        {Msg::SessionAccept, &AgentConnection::on_session_accept},
        {Msg::SessionReject, &AgentConnection::on_session_reject},
    };
    for (const MessageHandler& handler : kHandlers) {
      if (handler.code == header.type) return (this->*handler.handle)(header, message);
    }
  }

  void on_second_log_in(const EnvelopeHeader&, const Bytes&) {
    refuse_order("the agent is already logged in");
  }

  void on_heartbeat(const EnvelopeHeader&, const Bytes& message) {
    const nlohmann::json fields = agent_json(message);
    const auto beat = fields.find("beat");
    if (beat == fields.end() || !beat->is_number_unsigned()) return;
    if (parts_.machines.heartbeat_echo(*peer_, beat->get<std::uint32_t>(), Clock::now()))
      parts_.transfers.settle(peer_->id, peer_->heartbeat_sent);
  }

  void on_name_update(const EnvelopeHeader&, const Bytes& message) {
    parts_.machines.rename(*peer_, text_field(agent_json(message), "name"));
  }

  void on_session_accept(const EnvelopeHeader& header, const Bytes&) {
    parts_.sessions.accept(*peer_, header.session);
  }

  void on_session_reject(const EnvelopeHeader& header, const Bytes&) {
    parts_.sessions.reject(*peer_, header.session);
  }

  // Closes the connection of an agent that sends messages in the wrong order.
  void refuse_order(const std::string& reason) { channel_.close(CloseCode::PolicyViolation, reason); }

  void authenticate(Msg type, const Bytes& message) {
    const nlohmann::json fields = agent_json(message);
    if (!greeted_) {
      if (type != Msg::Hello || text_field(fields, "role") != "agent")
        return refuse_order("a hello was expected");
      greeted_ = true;
      return;
    }
    if (type != Msg::Enroll && type != Msg::Login) return refuse_order("an enrolment or log-in was expected");
    try {
      if (type == Msg::Enroll) {
        enroll(fields);
      } else {
        log_in(fields);
      }
    } catch (const DatabaseError& failure) {
      // Not AUTH_FAILED, which would make the agent delete its identity.
      log(failure.what());
      hold_back("RELAY_FAILED", "The relay cannot work at the moment.");
    }
  }

  void send_error(const char* code, const char* message) {
    channel_.send_binary(json_envelope(
        Msg::Error, 0, std::string("{\"code\":\"") + code + "\",\"message\":\"" + message + "\"}"));
  }

  // Sends an error and keeps the connection open for a while, because the agent connects again half a second
  // after each close.
  void hold_back(const char* code, const char* message) {
    send_error(code, message);
    peer_->refused = true;
    peer_->since = Clock::now();
  }

  void enroll(const nlohmann::json& fields) {
    if (context_.enrolments.exhausted(source_, Clock::now())) {
      log("enrolment refused: too many from this address");
      return hold_back("TOO_MANY", "Too many new machines from this address. Try again later.");
    }
    context_.enrolments.add(source_, Clock::now());
    const AgentRecord record{
        random_token(kIdBytes),   text_field(fields, "name"),  text_field(fields, "machine_name"),
        text_field(fields, "os"), text_field(fields, "hw_id"), wall_seconds()};
    const std::string secret = random_token(kSecretBytes);
    context_.store.add_agent(record, hash_secret(secret), peer_->address);
    parts_.audit.write({"agent-enrolled", "", record.id, peer_->address, record.machine});
    channel_.send_binary(json_envelope(
        Msg::EnrollResult, 0, R"({"agent_id":")" + record.id + R"(","agent_secret":")" + secret + R"("})"));
    go_online(record);
  }

  void log_in(const nlohmann::json& fields) {
    const std::string id = text_field(fields, "agent_id");
    const auto stored = context_.store.agent_secret_hash(id);
    // The secret is compared for unknown agents too, so that the time does not show which ids exist.
    const bool same = same_hash(stored.value_or(Bytes(32)), hash_secret(text_field(fields, "secret")));
    const AgentRecord* known = parts_.machines.find(id);
    if (!stored || !same || !known) return refuse_log_in(id, known ? "wrong secret" : "unknown");
    AgentRecord record = *known;
    record.name = text_field(fields, "name");
    if (record.name != known->name) context_.store.rename_agent(id, record.name);
    go_online(record);
  }

  void refuse_log_in(const std::string& id, const char* why) {
    log("log-in refused for agent \"" + id + "\": " + why);
    // The number of rows is limited, because anybody can cause them and each write waits for the disk.
    if (!context_.refusals.exhausted(source_, Clock::now())) {
      context_.refusals.add(source_, Clock::now());
      parts_.audit.write({"agent-refused", "", id, peer_->address, why});
    }
    send_error("AUTH_FAILED", "This machine is not known to the relay.");
    peer_->refused = true;
    channel_.close(CloseCode::PolicyViolation, "log-in refused", kRefusalDeadline);
  }

  void go_online(const AgentRecord& record) {
    channel_.send_binary(json_envelope(Msg::LoginResult, 0, "{}"));
    link_.set_read_limit(0);  // intake_ limits the messages from now on
    if (const auto older = parts_.machines.log_in(peer_, record)) {
      parts_.sessions.end_all_of(*older, "replaced");
      older->channel->cut("replaced by a newer log-in");
    }
    for (const std::uint32_t upload : parts_.transfers.owed(record.id, Clock::now()))
      channel_.send_binary(upload_end(0, upload));
    parts_.audit.write({"agent-login", "", record.id, peer_->address, record.name});
  }

  AgentContext& context_;
  Parts& parts_;
  WebSocketLink& link_;
  Channel& channel_;  // the channel of peer_
  const std::shared_ptr<AgentPeer> peer_;
  const std::string source_;
  Intake intake_;
  bool greeted_ = false;
  bool drop_logged_ = false;
};

}  // namespace

asio::awaitable<void> serve_agent(AgentContext& context, std::shared_ptr<WebSocketLink> link,
                                  std::string address, std::string source) {
  const auto peer = std::make_shared<AgentPeer>();
  peer->channel = link->channel();
  peer->address = std::move(address);
  Parts& parts = context.parts;
  parts.machines.add_connection(peer);
  try {
    AgentConnection connection(context, *link, peer, std::move(source));
    co_await connection.run();
  } catch (const std::exception& failure) {
    peer->channel->cut(failure.what());
  }
  peer->channel->cut(peer->channel->end_reason());
  parts.sessions.end_all_of(*peer, "agent-gone");
  parts.machines.remove_connection(peer);
}

}  // namespace vlk::relay
