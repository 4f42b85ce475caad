// The relay's side of an agent's connection. Bytes that arrive together with the upgrade response are handled
// by the agent only after its next read, so the relay sends nothing before the agent's hello.
#include "relay/links/agent_link.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/memory/memory_budget.h"
#include "relay/links/agent_login.h"
#include "relay/links/intake.h"
#include "relay/links/pace.h"
#include "relay/net/websocket_link.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

class AgentConnection {
 public:
  AgentConnection(AgentContext& context, WebSocketLink& link, std::shared_ptr<AgentPeer> peer,
                  Connections::Place& place)
      : context_(context),
        parts_(context.parts),
        link_(link),
        channel_(*peer->channel),
        peer_(std::move(peer)),
        login_(context, peer_, place),
        intake_(context.parts.router, context.limits, *peer_,
                [this](const std::string& text) { log(text); }) {
    channel_.on_bulk_written([this](const Channel::Piece& piece) { count_upload(piece); });
  }
  ~AgentConnection() { channel_.on_bulk_written(nullptr); }
  AgentConnection(const AgentConnection&) = delete;
  AgentConnection& operator=(const AgentConnection&) = delete;

  asio::awaitable<void> run() {
    link_.set_read_limit(context_.limits.unauthenticated_message);
    link_.on_arrival([this](Incoming& incoming) { return intake_.keep(incoming); });
    while (auto incoming = co_await link_.read()) {
      if (!earned_) co_await pace_.wait(link_.channel()->executor());
      MemoryBudget::Claim claim = intake_.take_claim();
      const Route route = intake_.route(*incoming);
      switch (route.kind) {
        case Route::Kind::Malformed:
          channel_.close(CloseCode::UnsupportedData, "not an envelope");
          break;
        case Route::Kind::ForRelay:
          if (peer_->id.empty()) {
            if (co_await login_.handle(route.header.type, incoming->bytes))
              link_.set_read_limit(context_.limits.idle_message);
          } else {
            handle(route.header, incoming->bytes);
          }
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

  // Sends a message to the browser that owns its session, and a picture to all that watch the stream. While
  // that browser does not read, pictures are dropped and downloads are kept on the disk. For other messages
  // the relay does not read from the agent: the agent's writes then block, and the relay's memory stays
  // bounded.
  //
  // Pictures overtake every other message of the machine, and files may be overtaken by all. The rest keeps
  // its order: what follows a large message is queued behind it.
  asio::awaitable<void> forward(Route route, Bytes message, MemoryBudget::Claim claim) {
    if (route.picture) {
      show(route, std::move(message), std::move(claim));
      co_return;
    }
    const std::uint32_t session = route.header.session;
    const bool file = is_transfer(route.header.type);
    if (file) peer_->times.file_arrived(Clock::now());
    if (route.download != 0) {
      co_await keep(route, hold(std::move(message), std::move(claim)));
      co_return;
    }
    const bool large = !file && message.size() > context_.limits.bulk_message;
    if (large) {
      co_await wait_while(route, [&] { return route.to->has_large(session); });
      if (!parts_.sessions.find(session)) co_return;
    }
    const auto bytes = hold(std::move(message), std::move(claim));
    if (large) {
      route.to->send_large(bytes, session);
    } else {
      route.to->send_binary(bytes, session, file || route.to->has_large(session) ? Lane::Bulk : Lane::Urgent);
    }
    co_await wait_while(route, [&] { return route.to->full(); });
  }

  // The wait for the disk ends with the session too.
  asio::awaitable<void> keep(const Route& route, std::shared_ptr<const Bytes> message) {
    const std::uint32_t session = route.header.session;
    const bool is_chunk = route.header.type == Msg::FileChunk;
    if (is_chunk)
      parts_.downloads.add_chunk(session, route.download, std::move(message));
    else
      parts_.downloads.add_end(session, route.download, std::move(message));
    if (!parts_.downloads.busy(session)) co_return;
    peer_->paused = true;
    while (parts_.downloads.busy(session) && !channel_.closing())
      co_await channel_.wait_for_change();
    peer_->paused = false;
    channel_.count_as_heard(Clock::now());
  }

  void count_upload(const Channel::Piece& piece) {
    const auto header = read_header(*piece.message);
    if (header && header->type == Msg::FileChunk)
      parts_.sessions.upload_passed(header->session, chunk_bytes(*piece.message));
  }

  void show(const Route& route, Bytes message, MemoryBudget::Claim claim) {
    bool needed = route.key_frame_needed;
    if (needed) log("the H.264 stream has reordered pictures; a key frame is requested");
    note_times(*route.picture, message);
    const auto bytes = hold(std::move(message), std::move(claim));
    peer_->recent.add(bytes, *route.picture, parts_.recent_pictures);
    const auto send = [&](const Session& viewer) {
      const auto header = header_for(*bytes, viewer.number);
      if (!viewer.console->channel->send_picture(bytes, viewer.number, *route.picture, header)) needed = true;
    };
    parts_.sessions.each_viewer(*peer_, route.header.session, send);
    SharedStream& stream = peer_->stream;
    const auto now = Clock::now();
    if (needed ? stream.need_key_frame(now) : stream.key_frame_due(now))
      channel_.send_binary(json_envelope(Msg::KeyframeRequest, route.header.session, "{}"));
  }

  void note_times(PictureKind kind, const Bytes& message) {
    const auto now = Clock::now();
    if (kind == PictureKind::Settings) {
      peer_->times.begin();
      peer_->quality.settings(now);
    } else if (const auto stamp = frame_stamp(message)) {
      peer_->times.arrived(now, *stamp, message.size());
      peer_->quality.picture(now, *stamp, message);
    }
  }

  // The wait ends with the session, so that a machine can be used again after its browser was too slow.
  template <class Condition>
  asio::awaitable<void> wait_while(const Route& route, Condition condition) {
    if (!condition()) co_return;
    peer_->paused = true;
    channel_.on_end([to = route.to] { to->resume_waiting(); });
    while (condition() && !channel_.closing() && !route.to->closing() &&
           parts_.sessions.find(route.header.session)) {
      co_await route.to->wait_for_change();
    }
    channel_.on_end(nullptr);
    peer_->paused = false;
    channel_.count_as_heard(Clock::now());
  }

  // Handles a message of a machine that has logged in, addressed to the relay itself.
  void handle(const EnvelopeHeader& header, const Bytes& message) {
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
    channel_.close(CloseCode::PolicyViolation, "the agent is already logged in");
  }

  void on_heartbeat(const EnvelopeHeader&, const Bytes& message) {
    login_.update_standing();
    const nlohmann::json fields = agent_json(message);
    const auto beat = fields.find("beat");
    if (beat == fields.end() || !beat->is_number_unsigned()) return;
    if (const auto sent = parts_.machines.heartbeat_echo(*peer_, beat->get<std::uint32_t>(), Clock::now()))
      parts_.transfers.settle(peer_->id, *sent);
  }

  void on_name_update(const EnvelopeHeader&, const Bytes& message) {
    const std::string name = text_field(agent_json(message), "name");
    const MachineRecord* known = parts_.machines.find(peer_->id);
    if (!known || known->name == name) return;
    if (context_.renames.exhausted(peer_->id, Clock::now()))
      return log_once("a new name was ignored: too many in a short time");
    context_.renames.add(peer_->id, Clock::now());
    parts_.machines.rename(*peer_, name);
  }

  void on_session_accept(const EnvelopeHeader& header, const Bytes&) {
    parts_.sessions.accept(*peer_, header.session);
    const Session* session = parts_.sessions.find(header.session);
    if (!session || session->agent != peer_ || !session->running()) return;
    earned_ = true;
    link_.set_read_limit(0);  // intake_ limits the messages from now on
    link_.expect_much();
  }

  void on_session_reject(const EnvelopeHeader& header, const Bytes&) {
    parts_.sessions.reject(*peer_, header.session);
  }

  AgentContext& context_;
  Parts& parts_;
  WebSocketLink& link_;
  Channel& channel_;  // the channel of peer_
  const std::shared_ptr<AgentPeer> peer_;
  AgentLogin login_;
  Intake intake_;
  Pace pace_;
  bool earned_ = false;  // one of the agent's sessions was accepted
  bool drop_logged_ = false;
};

}  // namespace

asio::awaitable<void> serve_agent(AgentContext& context, std::shared_ptr<WebSocketLink> link,
                                  Connections::Place& place) {
  const auto peer = std::make_shared<AgentPeer>();
  peer->channel = link->channel();
  peer->address = place.peer();
  Parts& parts = context.parts;
  peer->channel->count_into(parts.counters.agents);
  parts.machines.add_connection(peer);
  try {
    AgentConnection connection(context, *link, peer, place);
    co_await connection.run();
  } catch (const std::exception& failure) {
    peer->channel->cut(failure.what());
  }
  peer->channel->cut(peer->channel->end_reason());
  parts.sessions.end_all_of(*peer, "agent-gone");
  if (!peer->recorded.empty()) {
    const MachineRecord* machine = parts.machines.find(peer->recorded);  // null if it was removed
    parts.audit.write(trail_entry<TrailKind::MachineLost>(
        {.machine = peer->recorded, .address = peer->address},
        machine ? std::optional(machine->name) : std::nullopt, peer->channel->end_reason()));
  }
  parts.machines.remove_connection(peer);
}

}  // namespace vlk::relay
