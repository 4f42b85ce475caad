// The relay's side of a browser's WebSocket: control messages as JSON text, envelopes as binary frames.
#include "relay/links/console_link.h"

#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/memory/arrivals.h"
#include "relay/base/memory/memory_budget.h"
#include "relay/net/websocket_link.h"
#include "relay/session/files/machine_lane.h"
#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

std::optional<std::uint32_t> whole_number(const nlohmann::json& message, const char* key) {
  const auto number = message.find(key);
  if (number == message.end() || !number->is_number_unsigned()) return std::nullopt;
  const auto value = number->get<std::uint64_t>();
  if (value > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

std::optional<std::uint32_t> session_number(const nlohmann::json& message) {
  return whole_number(message, "session");
}

class ConsoleConnection {
 public:
  ConsoleConnection(Parts& parts, const Limits& limits, WebSocketLink& link,
                    std::shared_ptr<ConsolePeer> peer)
      : parts_(parts), limits_(limits), link_(link), channel_(*peer->channel), peer_(std::move(peer)) {
    channel_.on_bulk_written([this](const Channel::Piece&) { parts_.downloads.send_more(channel_); });
  }
  ~ConsoleConnection() { channel_.on_bulk_written(nullptr); }
  ConsoleConnection(const ConsoleConnection&) = delete;
  ConsoleConnection& operator=(const ConsoleConnection&) = delete;

  asio::awaitable<void> run() {
    link_.set_read_limit(limits_.browser_message);
    link_.on_arrival([this](Incoming& incoming) { return keep(incoming); });
    while (auto incoming = co_await link_.read()) {
      entry_ = {};
      if (channel_.closing()) continue;
      peer_->paused = true;
      if (incoming->text) {
        control(incoming->bytes);
      } else {
        MemoryBudget::Claim claim = std::exchange(claim_, {});
        co_await forward(std::move(incoming->bytes), std::move(claim));
      }
      claim_ = {};
      // The next message is read only when the queue to this browser has room for an answer. A download in
      // the queue does not count: key presses would wait for it.
      co_await channel_.wait_for_room();
      peer_->paused = false;
      channel_.count_as_heard(Clock::now());
    }
  }

 private:
  void refuse(const std::string& sentence) { parts_.browsers.refuse(*peer_, sentence); }

  // Takes memory for an envelope when its header has arrived. The link's read limit is below the budget, and
  // the envelopes of others leave the queues or are cut, so the wait ends.
  WebSocketLink::Keep keep(const Incoming& incoming) {
    if (incoming.text || claim_) return WebSocketLink::Keep::Yes;
    const auto start = read_start(incoming.bytes);
    if (!start || start->size <= limits_.control_message) return WebSocketLink::Keep::Yes;
    if (start->size > limits_.browser_message) return WebSocketLink::Keep::Yes;
    const auto now = Clock::now();
    if (!waits_since_) waits_since_ = now;
    Arrival arrival =
        parts_.router.arrival_from_browser(*peer_, *start, now - *waits_since_ >= limits_.memory_wait);
    if (arrival.kind == Arrival::Kind::Later) return WebSocketLink::Keep::Later;
    waits_since_.reset();
    claim_ = std::move(arrival.claim);
    entry_ = std::move(arrival.entry);
    return WebSocketLink::Keep::Yes;
  }

  asio::awaitable<void> forward(Bytes message, MemoryBudget::Claim claim) {
    const std::uint64_t size = message.size();
    const Route route = parts_.router.route_from_browser(*peer_, message);
    if (route.header.type == Msg::FileChunk && size >= kEnvelopeHeaderSize + kChunkHeader)
      count_upload(route, size - kEnvelopeHeaderSize - kChunkHeader);
    if (route.kind == Route::Kind::Malformed) channel_.close(CloseCode::UnsupportedData, "not an envelope");
    if (route.kind == Route::Kind::Refuse) refuse(route);
    if (route.kind == Route::Kind::ForRelay) parts_.sessions.watch(route.header.session);
    if (route.kind != Route::Kind::Forward) co_return;
    // What the console sends by itself to show a picture does not count as a use of the log-in.
    if (!find_needs(route.header.type)->to_machine.met_by(kSee))
      parts_.logins.use(peer_->login, wall_seconds());
    const std::string agent = parts_.sessions.find(route.header.session)->agent->id;
    send_to_machine(*route.to, route.header, std::move(message), std::move(claim), route.index);
    if (route.ended_upload) parts_.transfers.owe(agent, {*route.ended_upload}, Clock::now());
    if (const Session* session = parts_.sessions.find(route.header.session)) {
      session->agent->times.add_bytes(0, static_cast<std::size_t>(size));
      Sessions::send_orders(*session->agent, route.then);
    }
    if (route.stream_changed) parts_.sessions.report_stream(route.header.session);
    channel_.on_end([to = route.to] { to->resume_waiting(); });
    while (is_behind(route) && !route.to->closing() && !channel_.closing())
      co_await route.to->wait_for_change();
    channel_.on_end(nullptr);
  }

  // Whether the machine has not read what this browser has sent. A console that waits for the confirmations
  // of its uploads never sends so much of them.
  [[nodiscard]] bool is_behind(const Route& route) const {
    return route.to->full_without_bulk() ||
           route.to->queued_bytes(Lane::Bulk, route.header.session) > limits_.upload_queue;
  }

  void count_upload(const Route& route, std::uint64_t bytes) {
    const Session* session = parts_.sessions.find(route.header.session);
    if (!session || session->console != peer_) return;
    parts_.uploads.took(session->number, bytes);
    if (route.kind != Route::Kind::Forward) parts_.sessions.upload_passed(session->number, bytes);
  }

  void refuse(const Route& route) {
    nlohmann::json fields = nlohmann::json::object();
    if (route.transfer) fields["transfer"] = *route.transfer;
    if (!route.code.empty()) fields["code"] = route.code;
    parts_.browsers.refuse(*peer_, route.reason, route.agent, fields);
  }

  void control(const Bytes& text) {
    if (text.size() > limits_.control_message) return refuse("The message is too long.");
    const nlohmann::json message = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (!message.is_object()) return refuse("The message is not a JSON object.");
    const std::string type = text_field(message, "type");
    if (type == "list") return parts_.browsers.send_list(*peer_);
    if (type == "open") return open(message);
    if (type == "resume") return resume(message);
    if (type == "choices") return keep_choices(message);
    if (type == "close") return close(message);
    if (type == "cut") return cut(message);
    if (type == "ping") return answer_ping(message);
    if (type == "steer" || type == "take-over") return steer(type, message);
    if (type == "hand-over" || type == "refuse-steering") return answer_steering(type, message);
    if (type == "transfer") return give_transfer(message);
    if (type == "stored") return confirm_download(message);
    if (type == "continue") return continue_transfer(message);
    if (type == "shown") return note_shown(message);
    if (type == "quality") return choose_quality(message);
    refuse("The message's type is unknown.");
  }

  void open(const nlohmann::json& message) {
    const std::string agent = text_field(message, "agent");
    if (agent.empty()) return refuse("The machine's id is missing.");
    parts_.sessions.open(peer_, agent, text_field(message, "reason"));
  }

  void resume(const nlohmann::json& message) {
    const auto number = session_number(message);
    if (!number) return refuse("The session's number is missing.");
    parts_.sessions.resume(peer_, *number);
  }

  void keep_choices(const nlohmann::json& message) {
    const auto number = session_number(message);
    const auto choices = message.find("choices");
    if (!number || choices == message.end() || !choices->is_object())
      return refuse("The session's number or the choices are missing.");
    std::string text = dump(*choices);
    if (text.size() > limits_.choices) return refuse("The choices are too long.");
    parts_.sessions.keep_choices(*peer_, *number, std::move(text));
  }

  void close(const nlohmann::json& message) {
    const auto number = session_number(message);
    if (!number) return refuse("The session's number is missing.");
    parts_.sessions.close(*peer_, *number);
  }

  void cut(const nlohmann::json& message) {
    const auto number = session_number(message);
    if (!number) return refuse("The session's number is missing.");
    parts_.sessions.cut(*peer_, *number);
  }

  void steer(const std::string& type, const nlohmann::json& message) {
    const auto number = whole_number(message, "session");
    if (!number) return refuse("The session's number is missing.");
    if (type == "steer") return parts_.sessions.ask_to_steer(*peer_, *number);
    parts_.sessions.take_over(*peer_, *number);
  }

  void answer_steering(const std::string& type, const nlohmann::json& message) {
    const auto number = whole_number(message, "session");
    const auto to = whole_number(message, "to");
    if (!number || !to) return refuse("The number of one of the two sessions is missing.");
    if (type == "hand-over") return parts_.sessions.hand_over(*peer_, *number, *to);
    parts_.sessions.refuse_steering(*peer_, *number, *to);
  }

  void answer_ping(const nlohmann::json& message) {
    const auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer()) return refuse("The ping's id is missing.");
    nlohmann::json reply = {{"type", "pong"}, {"id", *id}, {"round_trip_ms", nullptr}};
    if (const auto measured = parts_.sessions.round_trip(*peer_)) reply["round_trip_ms"] = *measured;
    channel_.send_text(dump(reply));
  }

  void give_transfer(const nlohmann::json& message) {
    const auto number = session_number(message);
    const auto request = message.find("request");
    if (!number || request == message.end() || !request->is_number_integer())
      return refuse("The session's or the request's number is missing.");
    const auto id = request->get<std::int64_t>();
    const nlohmann::json fields = {{"request", id}};
    const Session* session = parts_.sessions.find(*number);
    if (!session || session->console != peer_ || !session->accepted())
      return parts_.browsers.refuse(*peer_, "There is no such session.", "", fields);
    if ((session->rights & (kFilesUp | kFilesDown)) == 0) {
      return parts_.browsers.refuse(*peer_, "You do not have the right to move files.", session->agent->id,
                                    {{"request", id}, {"code", kNoRightCode}});
    }
    const std::uint32_t transfer = parts_.transfers.give(*number);
    if (transfer == 0)
      return parts_.browsers.refuse(*peer_, "Too many transfers are open.", session->agent->id, fields);
    channel_.send_text(dump(nlohmann::json{{"type", "transfer"}, {"request", id}, {"transfer", transfer}}));
  }

  // A transfer of a session, and a number of bytes of its file.
  struct Progress {
    std::uint32_t session = 0;
    std::uint32_t transfer = 0;
    std::uint64_t bytes = 0;
  };
  static std::optional<Progress> progress_of(const nlohmann::json& message) {
    const auto session = session_number(message);
    const auto transfer = whole_number(message, "transfer");
    const auto bytes = message.find("bytes");
    if (!session || !transfer || bytes == message.end() || !bytes->is_number_unsigned()) return std::nullopt;
    return Progress{*session, *transfer, bytes->get<std::uint64_t>()};
  }

  // Does nothing for a session that has ended, because the browser may not know of the end yet.
  void confirm_download(const nlohmann::json& message) {
    const auto progress = progress_of(message);
    if (!progress) return refuse("The number of the session, of the download or of the bytes is missing.");
    const auto& [number, download, bytes] = *progress;
    const Session* session = parts_.sessions.find(number);
    if (!session || session->console != peer_) return;
    parts_.downloads.stored(number, download, bytes);
    const auto end = message.find("end");
    if (end == message.end() || *end != true || !parts_.downloads.finish(number, download)) return;
    parts_.transfers.forget(number, download);
  }

  void continue_transfer(const nlohmann::json& message) {
    const auto progress = progress_of(message);
    if (!progress) return refuse("The number of the session, of the transfer or of the bytes is missing.");
    parts_.sessions.continue_transfer(*peer_, progress->session, progress->transfer, progress->bytes);
  }

  void note_shown(const nlohmann::json& message) {
    const auto number = session_number(message);
    if (!number || !parts_.measures.shown(*peer_, *number, message, Clock::now()))
      refuse("The session's number or the pictures are missing or not valid.");
  }

  void choose_quality(const nlohmann::json& message) {
    const auto number = session_number(message);
    const auto choice = quality_choice(message);
    if (!number || !choice) return refuse("The session's number or the quality is missing or not valid.");
    parts_.quality.choose(*peer_, *number, *choice);
  }

  Parts& parts_;
  const Limits& limits_;
  WebSocketLink& link_;
  Channel& channel_;  // the channel of peer_
  const std::shared_ptr<ConsolePeer> peer_;
  MemoryBudget::Claim claim_;  // for the message that arrives
  Arrivals::Entry entry_;
  std::optional<Clock::time_point> waits_since_;
};

}  // namespace

asio::awaitable<void> serve_console(Parts& parts, const Limits& limits, std::shared_ptr<WebSocketLink> link,
                                    std::shared_ptr<ConsolePeer> peer) {
  peer->channel = link->channel();
  peer->channel->count_into(parts.counters.browsers);
  parts.browsers.add(peer);
  try {
    ConsoleConnection connection(parts, limits, *link, peer);
    co_await connection.run();
  } catch (const std::exception& failure) {
    peer->channel->cut(failure.what());
  }
  peer->channel->cut(peer->channel->end_reason());
  parts.sessions.hold_all_of(*peer, Clock::now());
  parts.browsers.remove(peer);
}

}  // namespace vlk::relay
