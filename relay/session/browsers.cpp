// The set of connected browsers, and the messages that do not belong to a session.
#include "relay/session/browsers.h"

#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/wire/console_messages.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

// Changes of the list that may be queued for a browser that reads slowly, besides the whole list.
constexpr std::size_t kMostQueuedChanges = 64 * 1024;

const std::string& key_of(const std::shared_ptr<const MachineView>& view) {
  static const std::string everything;
  return view ? view->key : everything;
}

void append(std::string& array, std::string_view value) {
  if (!array.empty()) array += ',';
  array += value;
}

std::shared_ptr<const Bytes> bytes_of(const std::string& text) {
  return std::make_shared<const Bytes>(text.begin(), text.end());
}

}  // namespace

void Browsers::add(const std::shared_ptr<ConsolePeer>& peer) {
  thread_.check();
  browsers_.insert(peer);
  log_.write(peer->address, "", "browser of " + peer->representative + " connected");
  send_whole(*peer, enter_feed(peer->view));
  send_waiting(*peer);
}

void Browsers::remove(const std::shared_ptr<ConsolePeer>& peer) {
  thread_.check();
  if (browsers_.erase(peer) > 0) leave_feed(peer->view);
  log_.write(peer->address, "",
             "browser of " + peer->representative + " disconnected: " + peer->channel->end_reason());
}

void Browsers::set_view(ConsolePeer& peer, std::shared_ptr<const MachineView> view) {
  thread_.check();
  Feed& feed = enter_feed(view);
  leave_feed(std::exchange(peer.view, std::move(view)));
  send_whole(peer, feed);
  send_waiting(peer);
}

Browsers::Feed& Browsers::enter_feed(const std::shared_ptr<const MachineView>& view) {
  Feed& feed = feeds_[key_of(view)];
  if (feed.browsers++ == 0) feed.view = view;
  return feed;
}

void Browsers::leave_feed(const std::shared_ptr<const MachineView>& view) {
  const auto found = feeds_.find(key_of(view));
  if (--found->second.browsers == 0) feeds_.erase(found);
}

std::optional<std::string> Browsers::entry(const Feed& feed, const MachineRecord& record) const {
  std::string fields;
  if (feed.view && !feed.view->shows(record, fields)) return std::nullopt;
  std::string text = machines_.entry(record.id);
  if (!fields.empty()) text.replace(text.size() - 1, 1, ',' + fields + '}');
  return text;
}

const Browsers::Text& Browsers::whole_list(Feed& feed) const {
  if (feed.whole) return feed.whole;
  std::string machines;
  for (const auto& [id, record] : machines_.records()) {
    const auto text = entry(feed, record);
    if (!text) continue;
    append(machines, *text);
    feed.shown.insert(id);
  }
  feed.whole = bytes_of(R"({"type":"agents","version":)" + std::to_string(feed.version) + R"(,"agents":[)" +
                        machines + "]}");
  feed.whole_bytes = feed.whole->size();
  return feed.whole;
}

Browsers::Text Browsers::changes(Feed& feed, const std::set<std::string>& ids) const {
  std::string changed, removed;
  for (const std::string& id : ids) {
    const MachineRecord* record = machines_.find(id);
    const auto text = record ? entry(feed, *record) : std::nullopt;
    if (text) {
      append(changed, *text);
      feed.shown.insert(id);
    } else if (feed.shown.erase(id) > 0) {
      append(removed, dump(id));
    }
  }
  if (changed.empty() && removed.empty()) return nullptr;
  feed.whole.reset();
  return bytes_of(R"({"type":"agents-changed","version":)" + std::to_string(++feed.version) +
                  R"(,"changed":[)" + changed + R"(],"removed":[)" + removed + "]}");
}

void Browsers::send_changes() {
  thread_.check();
  const std::set<std::string> ids = machines_.take_changed();
  if (!ids.empty() && waiting_ != machines_.count_waiting()) {
    waiting_ = machines_.count_waiting();
    for (const auto& peer : browsers_)
      send_waiting(*peer);
  }
  std::map<const Feed*, Text> texts;
  for (auto& [key, feed] : feeds_)
    texts[&feed] = changes(feed, ids);
  for (const auto& peer : browsers_) {
    Feed& feed = feeds_.at(key_of(peer->view));
    send_change(*peer, feed, texts.at(&feed));
  }
}

void Browsers::send_change(ConsolePeer& peer, Feed& feed, const Text& change) const {
  const std::size_t queued = peer.channel->queued_bytes(Lane::Control, kListTag);
  if (peer.list_missed && queued == 0) return send_whole(peer, feed);
  if (!change || peer.list_missed) return;
  peer.list_missed = queued > feed.whole_bytes + kMostQueuedChanges;
  if (!peer.list_missed) peer.channel->send_text(change, kListTag, Lane::Control);
}

void Browsers::send_list(ConsolePeer& peer) {
  thread_.check();
  send_whole(peer, feeds_.at(key_of(peer.view)));
}

void Browsers::send_whole(ConsolePeer& peer, Feed& feed) const {
  peer.list_missed = false;
  peer.channel->discard(kListTag);
  peer.channel->send_text(whole_list(feed), kListTag, Lane::Control);
}

void Browsers::send_waiting(ConsolePeer& peer) const {
  if (!peer.view || !peer.view->counts_waiting) return;
  peer.channel->send_text(dump(nlohmann::json{{"type", "waiting"}, {"count", machines_.count_waiting()}}));
}

void Browsers::refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent) const {
  refuse(peer, sentence, agent, nlohmann::json::object());
}

void Browsers::refuse(ConsolePeer& peer, const std::string& sentence, const std::string& agent,
                      const nlohmann::json& fields) const {
  log_.write(peer.address, agent, "refused a request of " + peer.representative + ": " + sentence);
  peer.channel->send_text(error_message(sentence, agent, fields));
}

void Browsers::end_login(const Bytes& login, const std::string& reason) {
  thread_.check();
  for (const auto& peer : browsers_) {
    if (peer->login == login) peer->channel->close(CloseCode::PolicyViolation, reason);
  }
}

bool Browsers::warn_login(const Bytes& login, std::int64_t seconds) const {
  const std::string message = dump(nlohmann::json{{"type", "login-ends"}, {"seconds", seconds}});
  bool any = false;
  for (const auto& peer : browsers_) {
    if (peer->login != login) continue;
    peer->channel->send_text(message);
    any = true;
  }
  return any;
}

void Browsers::close_all(CloseCode code, const std::string& reason) {
  for (const auto& peer : browsers_)
    peer->channel->close(code, reason);
}

}  // namespace vlk::relay
