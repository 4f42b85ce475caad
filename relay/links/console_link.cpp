// The relay's side of a browser's WebSocket: control messages as JSON text, envelopes as binary frames.
#include "relay/links/console_link.h"

#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/net/websocket_link.h"
#include "relay/wire/envelope.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

std::optional<std::uint32_t> session_number(const nlohmann::json& message) {
  const auto number = message.find("session");
  if (number == message.end() || !number->is_number_unsigned()) return std::nullopt;
  const auto value = number->get<std::uint64_t>();
  if (value > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

class ConsoleConnection {
 public:
  ConsoleConnection(Parts& parts, const Limits& limits, WebSocketLink& link,
                    std::shared_ptr<ConsolePeer> peer)
      : parts_(parts), limits_(limits), link_(link), channel_(*peer->channel), peer_(std::move(peer)) {}

  asio::awaitable<void> run() {
    link_.set_read_limit(limits_.browser_message);
    while (auto incoming = co_await link_.read()) {
      if (channel_.closing()) continue;
      peer_->paused = true;
      if (incoming->text) {
        control(incoming->bytes);
      } else {
        co_await forward(std::move(incoming->bytes));
      }
      // The next message is read only when the queue of messages to this browser is not full.
      co_await channel_.wait_for_room();
      peer_->paused = false;
      channel_.count_as_heard(Clock::now());
    }
  }

 private:
  void refuse(const std::string& sentence) { parts_.browsers.refuse(*peer_, sentence); }

  asio::awaitable<void> forward(Bytes message) {
    const Route route = parts_.router.route_from_browser(*peer_, message);
    if (route.kind == Route::Kind::Malformed) channel_.close(CloseCode::UnsupportedData, "not an envelope");
    if (route.kind == Route::Kind::Refuse) refuse(route);
    if (route.kind != Route::Kind::Forward) co_return;
    route.to->send_binary(std::make_shared<const Bytes>(std::move(message)));
    // While this browser is not read, its machines are read whatever it has stored.
    if (route.to->full()) channel_.resume_waiting();
    co_await route.to->wait_for_room();
  }

  void refuse(const Route& route) {
    nlohmann::json fields = nlohmann::json::object();
    if (route.transfer) fields["transfer"] = *route.transfer;
    parts_.browsers.refuse(*peer_, route.reason, route.agent, fields);
  }

  void control(const Bytes& text) {
    if (text.size() > limits_.control_message) return refuse("The message is too long.");
    const nlohmann::json message = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (!message.is_object()) return refuse("The message is not a JSON object.");
    const std::string type = text_field(message, "type");
    if (type == "open") return open(message);
    if (type == "close") return close(message);
    if (type == "cut") return cut(message);
    if (type == "ping") return answer_ping(message);
    if (type == "transfer") return give_transfer(message);
    if (type == "stored") return confirm_downloads(message);
    refuse("The message's type is unknown.");
  }

  void open(const nlohmann::json& message) {
    const std::string agent = text_field(message, "agent");
    if (agent.empty()) return refuse("The machine's id is missing.");
    parts_.sessions.open(peer_, agent);
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
    const std::uint32_t transfer = parts_.transfers.give(*number);
    if (transfer == 0)
      return parts_.browsers.refuse(*peer_, "Too many transfers are open.", session->agent->id, fields);
    channel_.send_text(dump(nlohmann::json{{"type", "transfer"}, {"request", id}, {"transfer", transfer}}));
  }

  // Does nothing for a session that has ended, because the browser may not know of the end yet.
  void confirm_downloads(const nlohmann::json& message) {
    const auto number = session_number(message);
    const auto bytes = message.find("bytes");
    if (!number || bytes == message.end() || !bytes->is_number_unsigned())
      return refuse("The session's number or the number of bytes is missing.");
    const Session* session = parts_.sessions.find(*number);
    if (!session || session->console != peer_) return;
    parts_.transfers.confirm(*number, bytes->get<std::uint64_t>());
    if (!parts_.transfers.ahead_of_browser(*number)) channel_.resume_waiting();
  }

  Parts& parts_;
  const Limits& limits_;
  WebSocketLink& link_;
  Channel& channel_;  // the channel of peer_
  const std::shared_ptr<ConsolePeer> peer_;
};

}  // namespace

asio::awaitable<void> serve_console(Parts& parts, const Limits& limits, std::shared_ptr<WebSocketLink> link,
                                    std::shared_ptr<ConsolePeer> peer) {
  peer->channel = link->channel();
  parts.browsers.add(peer, parts.machines.list(parts.sessions.representatives()));
  try {
    ConsoleConnection connection(parts, limits, *link, peer);
    co_await connection.run();
  } catch (const std::exception& failure) {
    peer->channel->cut(failure.what());
  }
  peer->channel->cut(peer->channel->end_reason());
  parts.sessions.end_all_of(*peer, "browser-gone");
  parts.browsers.remove(peer);
}

}  // namespace vlk::relay
