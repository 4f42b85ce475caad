// The set of connected browsers, and the messages that do not belong to a session.
#include "relay/session/browsers.h"

#include <nlohmann/json.hpp>

#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

std::string list_message(const nlohmann::json& machines) {
  return dump(nlohmann::json{{"type", "agents"}, {"agents", machines}});
}

void send_list_to(ConsolePeer& peer, const std::string& message) {
  peer.channel->discard(kListTag);
  peer.channel->send_text(message, kListTag);
}

}  // namespace

void Browsers::add(const std::shared_ptr<ConsolePeer>& peer, const nlohmann::json& machines) {
  thread_.check();
  browsers_.insert(peer);
  log_.write(peer->address, "", "browser of " + peer->representative + " connected");
  send_list_to(*peer, list_message(machines));
}

void Browsers::remove(const std::shared_ptr<ConsolePeer>& peer) {
  thread_.check();
  browsers_.erase(peer);
  log_.write(peer->address, "",
             "browser of " + peer->representative + " disconnected: " + peer->channel->end_reason());
}

void Browsers::send_list(const nlohmann::json& machines) const {
  const std::string message = list_message(machines);
  for (const auto& peer : browsers_)
    send_list_to(*peer, message);
}

void Browsers::refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent) const {
  refuse(peer, sentence, agent, nlohmann::json::object());
}

void Browsers::refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent,
                      const nlohmann::json& fields) const {
  log_.write(peer.address, agent, "refused a request of " + peer.representative + ": " + sentence);
  peer.channel->send_text(error_message(sentence, agent, fields));
}

void Browsers::end_login(const Bytes& login) {
  thread_.check();
  for (const auto& peer : browsers_) {
    if (peer->login == login) peer->channel->close(CloseCode::PolicyViolation, "the log-in ended");
  }
}

void Browsers::end_other_logins(const std::string& representative, const Bytes& login) {
  thread_.check();
  for (const auto& peer : browsers_) {
    if (peer->representative != representative || peer->login == login) continue;
    peer->channel->close(CloseCode::PolicyViolation, "the password was changed");
  }
}

void Browsers::close_all(CloseCode code, const std::string& reason) {
  for (const auto& peer : browsers_)
    peer->channel->close(code, reason);
}

}  // namespace vlk::relay
