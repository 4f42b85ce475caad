// The server side of the agents' link. The agent hears a message only with a read that follows its upgrade,
// so nothing is sent before its hello arrived.
#include "relay/links/agent_link.h"

#include <nlohmann/json.hpp>

#include "relay/base/secrets.h"
#include "relay/h264/stream.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kIdBytes = 16;
constexpr std::size_t kSecretBytes = 32;
constexpr std::size_t kStampSize = 8;  // bytes in front of a frame's picture
// A refused log-in is closed quickly: the agent forgets its identity and dials again, to enrol.
constexpr std::chrono::milliseconds kRefusalDeadline{1000};

class AgentSession {
 public:
  AgentSession(AgentContext& context, std::shared_ptr<AgentPeer> peer, std::string source)
      : context_(context), peer_(std::move(peer)), source_(std::move(source)) {}

  asio::awaitable<void> run() {
    peer_->socket->set_read_limit(context_.limits.unauthenticated_message);
    while (auto incoming = co_await peer_->socket->read()) {
      const auto header = incoming->text ? std::nullopt : read_header(incoming->bytes);
      if (!header) {
        peer_->socket->close(boost::beast::websocket::unknown_data, "that is no envelope");
        continue;
      }
      if (peer_->refused || peer_->socket->closing()) continue;
      if (peer_->id.empty()) {
        authenticate(header->type, incoming->bytes);
      } else if (flows_to_browser(header->type)) {
        co_await forward(*header, std::move(incoming->bytes));
      } else {
        handle(*header, incoming->bytes);
      }
    }
  }

 private:
  void log(const std::string& text) { context_.log.write(peer_->address, peer_->id, text); }

  // Ends the connection of an agent that breaks the order of messages.
  void refuse_order(const std::string& what) {
    peer_->socket->close(boost::beast::websocket::policy_error, what);
  }

  void authenticate(Msg type, const Bytes& message) {
    const nlohmann::json fields = agent_json(message);
    if (!greeted_) {
      if (type != Msg::Hello || text_field(fields, "role") != "agent")
        return refuse_order("a hello was expected");
      greeted_ = true;
      return;
    }
    if (type != Msg::Enroll && type != Msg::Login) return refuse_order("enrolment or log-in was expected");
    try {
      if (type == Msg::Enroll) {
        enroll(fields);
      } else {
        login(fields);
      }
    } catch (const DatabaseError& failure) {
      // Not AUTH_FAILED, which would make the agent throw its identity away.
      log(failure.what());
      hold_back("RELAY_FAILED", "The relay cannot work at the moment.");
    }
  }

  void send_error(const char* code, const char* message) {
    peer_->socket->send_binary(json_envelope(
        Msg::Error, 0, std::string("{\"code\":\"") + code + "\",\"message\":\"" + message + "\"}"));
  }

  // The agent dials again half a second after every close; kept waiting it is no burden.
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
    AgentRecord record{
        random_token(kIdBytes),   text_field(fields, "name"),  text_field(fields, "machine_name"),
        text_field(fields, "os"), text_field(fields, "hw_id"), wall_seconds()};
    const std::string secret = random_token(kSecretBytes);
    context_.store.add_agent(record, hash_secret(secret), peer_->address);
    context_.hub.audit({"agent-enrolled", "", record.id, peer_->address, record.machine});
    peer_->socket->send_binary(json_envelope(
        Msg::EnrollResult, 0, R"({"agent_id":")" + record.id + R"(","agent_secret":")" + secret + R"("})"));
    go_online(record);
  }

  void login(const nlohmann::json& fields) {
    const std::string id = text_field(fields, "agent_id");
    const auto stored = context_.store.agent_secret_hash(id);
    // An unknown agent is compared as well, so that the time tells nothing about which ids exist.
    const bool same = same_hash(stored.value_or(Bytes(32)), hash_secret(text_field(fields, "secret")));
    if (!stored || !same) {
      log("log-in refused for agent \"" + id + "\": " + (stored ? "wrong secret" : "unknown"));
      note_refusal(id, stored ? "wrong secret" : "unknown");
      send_error("AUTH_FAILED", "This machine is not known to the relay.");
      peer_->refused = true;
      return peer_->socket->close(boost::beast::websocket::policy_error, "log-in refused", kRefusalDeadline);
    }
    AgentRecord record = context_.hub.record(id);
    const std::string name = text_field(fields, "name");
    if (record.name != name) context_.store.rename_agent(id, name);
    record.name = name;
    go_online(record);
  }

  // Anybody can make these, and each waits for the disk.
  void note_refusal(const std::string& id, const char* why) {
    if (context_.refusals.exhausted(source_, Clock::now())) return;
    context_.refusals.add(source_, Clock::now());
    context_.hub.audit({"agent-refused", "", id, peer_->address, why});
  }

  void go_online(const AgentRecord& record) {
    peer_->socket->send_binary(json_envelope(Msg::LoginResult, 0, "{}"));
    peer_->socket->set_read_limit(context_.limits.agent_message);
    context_.hub.online(peer_, record);
  }

  void handle(const EnvelopeHeader& header, const Bytes& message) {
    // JSON takes many times its length in memory, and anybody may enrol.
    if (message.size() > context_.limits.control_message) return ignore(header.type, "an oversized");
    switch (header.type) {
      case Msg::Heartbeat:
        return heartbeat(message);
      case Msg::NameUpdate:
        return rename(text_field(agent_json(message), "name"));
      case Msg::SessionAccept:
        return context_.hub.accepted(*peer_, header.session);
      case Msg::SessionReject:
        return context_.hub.rejected(*peer_, header.session);
      case Msg::Hello:
      case Msg::Enroll:
      case Msg::Login:
        return refuse_order("it has logged in already");
      default:
        ignore(header.type, "a");
    }
  }

  // Told once a connection.
  void ignore(Msg type, const char* article) {
    if (!strange_logged_)
      log(std::string("ignored ") + article + " message of type " + std::to_string(static_cast<int>(type)));
    strange_logged_ = true;
  }

  void heartbeat(const Bytes& message) {
    const nlohmann::json fields = agent_json(message);
    const auto beat = fields.find("beat");
    if (beat != fields.end() && beat->is_number_unsigned()) {
      context_.hub.heartbeat_echo(*peer_, beat->get<std::uint32_t>());
    }
  }

  void rename(const std::string& name) {
    try {
      context_.store.rename_agent(peer_->id, name);
      context_.hub.renamed(*peer_, name);
    } catch (const DatabaseError& failure) {
      log(failure.what());
    }
  }

  // Passes an envelope to the browser that owns its session. While that browser is behind, the agent is not
  // read from, so that its blocking writes slow it down and nothing piles up here.
  asio::awaitable<void> forward(EnvelopeHeader header, Bytes message) {
    const Session* session = context_.hub.find(header.session);
    if (!session || session->agent != peer_ || !session->accepted) {
      // Pictures still on their way when a session ends are usual; of the rest one line is enough.
      if (!strange_logged_ && header.type != Msg::StreamFrame) {
        log("dropped a message for session " + std::to_string(header.session) + ", which is not open");
        strange_logged_ = true;
      }
      co_return;
    }
    if (header.type == Msg::StreamConfig) stream_ = {};
    if (header.type == Msg::StreamFrame) complete_frame(header.session, message);
    if (!context_.hub.wanted(*session, header.type, message)) co_return;
    const auto browser = session->console->socket;
    browser->send_binary(std::make_shared<const Bytes>(std::move(message)), header.session);
    if (!browser->full()) co_return;
    peer_->paused = true;
    // Only as long as the session lasts: one that ended as too slow must not keep the machine from others.
    while (browser->full() && !browser->closing() && context_.hub.find(header.session)) {
      co_await browser->change();
    }
    peer_->paused = false;
    peer_->socket->count_as_heard();
  }

  // Only the parameter sets of an H.264 stream change on their way.
  void complete_frame(std::uint32_t session, Bytes& message) {
    const std::size_t size = message.size();
    if (!stream_.pass(message, kEnvelopeHeaderSize + kStampSize)) {
      log("the pictures of its H.264 stream come out of order");
      peer_->socket->send_binary(json_envelope(Msg::KeyframeRequest, session, "{}"));
    }
    if (message.size() != size) set_payload_length(message);
  }

  AgentContext& context_;
  const std::shared_ptr<AgentPeer> peer_;
  const std::string source_;
  H264Stream stream_;
  bool greeted_ = false;
  bool strange_logged_ = false;
};

}  // namespace

asio::awaitable<void> serve_agent(AgentContext& context, std::shared_ptr<AgentPeer> peer,
                                  std::string source) {
  context.hub.add_agent(peer);
  try {
    AgentSession session(context, peer, std::move(source));
    co_await session.run();
  } catch (const std::exception& failure) {
    peer->socket->cut(failure.what());
  }
  peer->socket->cut(peer->socket->end_reason());
  context.hub.remove_agent(peer);
}

}  // namespace vlk::relay
