// Reads the input events that pass, and builds the events that release what is pressed.
#include "relay/session/table/pressed_input.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "wire/messages.h"

namespace vlk::relay {
namespace {

// The types of events and their sizes in bytes, the type included. docs/session-messages.md describes each.
constexpr std::uint8_t kMove = 1;
constexpr std::uint8_t kButton = 2;
constexpr std::uint8_t kWheel = 3;
constexpr std::uint8_t kKey = 4;

std::size_t size_of(std::uint8_t type) {
  switch (type) {
    case kMove:
      return 5;
    case kButton:
    case kWheel:
      return 3;
    case kKey:
      return 7;
    default:
      return 0;
  }
}

// The payload's events as the agent reads them; nothing if the agent drops the whole payload.
std::optional<std::vector<std::span<const std::uint8_t>>> events_of(std::span<const std::uint8_t> payload) {
  if (payload.empty()) return std::nullopt;
  std::vector<std::span<const std::uint8_t>> events;
  std::span<const std::uint8_t> rest = payload.subspan(1);
  for (std::size_t left = payload[0]; left > 0 && !rest.empty(); --left) {
    const std::size_t size = size_of(rest[0]);
    if (size == 0 || size > rest.size()) return std::nullopt;
    events.push_back(rest.first(size));
    rest = rest.subspan(size);
  }
  return events;
}

}  // namespace

bool PressedInput::note(std::uint32_t session, std::span<const std::uint8_t> payload) {
  const auto events = events_of(payload);
  if (!events) return false;
  for (const auto& event : *events) {
    const std::uint8_t type = event[0];
    if (type != kButton && type != kKey) continue;
    Release release{};
    std::ranges::copy(event, release.begin());
    std::uint8_t& down = release.at(type == kButton ? 2 : 1);
    const bool pressed = down != 0;
    down = 0;
    if (!pressed) {
      const auto known = sessions_.find(session);
      if (known == sessions_.end()) continue;
      known->second.erase(release);
      if (known->second.empty()) sessions_.erase(known);
    } else if (std::set<Release>& all = sessions_[session]; all.size() < kMost) {
      all.insert(release);
    }
  }
  return std::ranges::any_of(*events, [](const auto& event) { return event[0] != kMove; });
}

bool PressedInput::keep_releases(std::uint32_t session, Bytes& message) const {
  const auto known = sessions_.find(session);
  const auto events = events_of(std::span(message).subspan(kEnvelopeHeaderSize));
  if (known == sessions_.end() || !events) return false;
  Bytes payload(1);
  for (const auto& event : *events) {
    Release release{};
    std::ranges::copy(event, release.begin());
    if (!known->second.contains(release)) continue;  // an event that presses or moves never equals a release
    ++payload[0];
    payload.insert(payload.end(), event.begin(), event.end());
  }
  message = encode_envelope(Msg::InputEvent, session, payload.data(), payload.size(), 0);
  return payload[0] > 0;
}

std::shared_ptr<const Bytes> PressedInput::release(std::uint32_t session) {
  const auto known = sessions_.find(session);
  if (known == sessions_.end()) return nullptr;
  Bytes payload(1, static_cast<std::uint8_t>(known->second.size()));
  for (const Release& event : known->second)
    payload.insert(payload.end(), event.begin(),
                   event.begin() + static_cast<std::ptrdiff_t>(size_of(event[0])));
  sessions_.erase(known);
  return std::make_shared<const Bytes>(
      encode_envelope(Msg::InputEvent, session, payload.data(), payload.size(), 0));
}

}  // namespace vlk::relay
