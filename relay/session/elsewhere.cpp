// Machines that are connected to other relays, and those that are moved there.
#include "relay/session/machines.h"

namespace vlk::relay {

void Machines::set_elsewhere(const std::string& id, std::int64_t relay) {
  thread_.check();
  if (std::exchange(elsewhere_[id], relay) != relay) mark_changed(id);
}

void Machines::left_relay(const std::string& id, std::int64_t relay) {
  thread_.check();
  const auto found = elsewhere_.find(id);
  if (found == elsewhere_.end() || found->second != relay) return;
  elsewhere_.erase(found);
  mark_changed(id);
}

void Machines::replace_elsewhere(std::map<std::string, std::int64_t> elsewhere) {
  thread_.check();
  for (const auto& [id, relay] : elsewhere) {
    if (this->elsewhere(id) != relay) mark_changed(id);
  }
  for (const auto& [id, relay] : elsewhere_) {
    if (!elsewhere.contains(id)) mark_changed(id);
  }
  elsewhere_ = std::move(elsewhere);
}

std::int64_t Machines::elsewhere(const std::string& id) const {
  const auto found = elsewhere_.find(id);
  return found == elsewhere_.end() ? 0 : found->second;
}

std::vector<std::string> Machines::online() const {
  std::vector<std::string> ids;
  for (const auto& entry : online_)
    ids.push_back(entry.first);
  return ids;
}

std::size_t Machines::cut_some(std::size_t count, const std::string& reason) {
  std::size_t cut = 0;
  for (const bool used : {false, true}) {
    for (const auto& [id, peer] : online_) {
      if (cut == count) return cut;
      if (peer->channel->closing() || in_use_.contains(id) != used) continue;
      peer->channel->cut(reason);
      ++cut;
    }
    if (cut > 0) return cut;
  }
  return cut;
}

}  // namespace vlk::relay
