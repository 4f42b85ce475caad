// The WebSocket of a representative's browser: control messages as JSON text, envelopes as binary frames.
#include "relay/links/console_link.h"

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace asio = boost::asio;
namespace websocket = boost::beast::websocket;

namespace vlk::relay {
namespace {

class ConsoleSession {
 public:
  ConsoleSession(Hub& hub, const Limits& limits, std::shared_ptr<ConsolePeer> peer)
      : hub_(hub), limits_(limits), peer_(std::move(peer)) {}

  asio::awaitable<void> run() {
    peer_->socket->set_read_limit(limits_.browser_message);
    while (auto incoming = co_await peer_->socket->read()) {
      if (peer_->socket->closing()) continue;
      peer_->paused = true;
      if (incoming->text) {
        control(incoming->bytes);
      } else {
        co_await forward(std::move(incoming->bytes));
      }
      // Answers that the browser does not read must not pile up.
      co_await peer_->socket->room();
      peer_->paused = false;
      peer_->socket->count_as_heard();
    }
  }

 private:
  void control(const Bytes& text) {
    if (text.size() > limits_.control_message) return hub_.error(*peer_, "That message is too long.");
    const nlohmann::json message = nlohmann::json::parse(text.begin(), text.end(), nullptr, false);
    if (!message.is_object()) return hub_.error(*peer_, "That is no JSON object.");
    const std::string type = text_field(message, "type");
    if (type == "open") return open(message);
    if (type == "close") return close(message);
    if (type == "ping") return ping(message);
    if (type == "transfer") return transfer(message);
    hub_.error(*peer_, "That message has no known type.");
  }

  void open(const nlohmann::json& message) {
    const std::string agent = text_field(message, "agent");
    if (agent.empty()) return hub_.error(*peer_, "The machine's id is missing.");
    hub_.open_session(peer_, agent);
  }

  void close(const nlohmann::json& message) {
    const auto number = session_number(message);
    if (!number) return hub_.error(*peer_, "The session's number is missing.");
    hub_.close_session(*peer_, *number);
  }

  void transfer(const nlohmann::json& message) {
    const auto number = session_number(message);
    const auto request = message.find("request");
    if (!number || request == message.end() || !request->is_number_integer())
      return hub_.error(*peer_, "The session's or the request's number is missing.");
    hub_.give_transfer(*peer_, *number, request->get<std::int64_t>());
  }

  static std::optional<std::uint32_t> session_number(const nlohmann::json& message) {
    const auto number = message.find("session");
    if (number == message.end() || !number->is_number_unsigned()) return std::nullopt;
    const auto value = number->get<std::uint64_t>();
    if (value > UINT32_MAX) return std::nullopt;
    return static_cast<std::uint32_t>(value);
  }

  void ping(const nlohmann::json& message) {
    const auto id = message.find("id");
    if (id == message.end() || !id->is_number_integer())
      return hub_.error(*peer_, "The ping's id is missing.");
    nlohmann::json reply = {{"type", "pong"}, {"id", *id}, {"round_trip_ms", nullptr}};
    if (const auto measured = hub_.round_trip(*peer_)) reply["round_trip_ms"] = *measured;
    peer_->socket->send_text(dump(reply));
  }

  asio::awaitable<void> forward(Bytes message) {
    const auto header = read_header(message);
    if (!header) {
      peer_->socket->close(websocket::unknown_data, "that is no envelope");
      co_return;
    }
    const Session* session = hub_.find(header->session);
    if (!session || session->console != peer_) {
      hub_.error(*peer_, "There is no such session.");
      co_return;
    }
    if (!session->accepted) {
      hub_.error(*peer_, "The session has not been accepted.", session->agent->id);
      co_return;
    }
    if (!flows_to_agent(header->type)) {
      hub_.error(*peer_, "A message of that type is not for the machine.", session->agent->id);
      co_return;
    }
    if (!hub_.admit(*session, header->type, message)) co_return;
    const auto agent = session->agent->socket;
    agent->send_binary(std::make_shared<const Bytes>(std::move(message)));
    co_await agent->room();
  }

  Hub& hub_;
  const Limits& limits_;
  const std::shared_ptr<ConsolePeer> peer_;
};

}  // namespace

asio::awaitable<void> serve_console(Hub& hub, const Limits& limits, std::shared_ptr<ConsolePeer> peer) {
  hub.add_console(peer);
  try {
    ConsoleSession session(hub, limits, peer);
    co_await session.run();
  } catch (const std::exception& failure) {
    peer->socket->cut(failure.what());
  }
  peer->socket->cut(peer->socket->end_reason());
  hub.remove_console(peer);
}

}  // namespace vlk::relay
