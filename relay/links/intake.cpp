// Decides about arriving messages.
#include "relay/links/intake.h"

#include "relay/wire/console_messages.h"

namespace vlk::relay {

WebSocketLink::Keep Intake::keep(Incoming& incoming) {
  using Keep = WebSocketLink::Keep;
  if (peer_.id.empty()) return Keep::Yes;
  if (incoming.text) return Keep::No;
  if (!start_) start_ = read_start(incoming.bytes);
  if (!start_) return Keep::Yes;
  count(incoming);
  if (!admitted_) {
    const Keep answer = admit(*start_);
    if (answer != Keep::Yes) return answer;
    admitted_ = true;
    incoming.bytes.reserve(static_cast<std::size_t>(start_->size));
  }
  if (incoming.size <= start_->size && router_.still_wanted(peer_, *start_)) return Keep::Yes;
  claim_ = {};
  entry_ = {};
  return Keep::No;
}

// A large picture can take seconds to arrive.
void Intake::count(const Incoming& incoming) {
  const std::uint64_t bytes = incoming.size - std::exchange(counted_, incoming.size);
  const bool picture = start_->header.type == Msg::StreamFrame;
  peer_.times.add_bytes(picture ? bytes : 0, picture ? 0 : bytes);
}

WebSocketLink::Keep Intake::admit(const EnvelopeStart& start) {
  const auto now = Clock::now();
  const bool waited_enough = waits_since_ && now - *waits_since_ >= limits_.memory_wait;
  Arrival arrival = router_.arrival_from_agent(peer_, start, waited_enough);
  if (arrival.kind == Arrival::Kind::Later) {
    if (!waits_since_) waits_since_ = now;
    return WebSocketLink::Keep::Later;
  }
  waits_since_.reset();
  claim_ = std::move(arrival.claim);
  entry_ = std::move(arrival.entry);
  reason_ = std::move(arrival.reason);
  if (arrival.kind == Arrival::Kind::TooLarge) {
    const auto type = static_cast<std::uint8_t>(start.header.type);
    arrival.to->send_text(too_large_message(start.header.session, type, start.size));
    log_("dropped a message of type " + std::to_string(type) + " with " + std::to_string(start.size) +
         " bytes: too large");
  }
  return arrival.kind == Arrival::Kind::Hold ? WebSocketLink::Keep::Yes : WebSocketLink::Keep::No;
}

Route Intake::route(Incoming& incoming) {
  const auto start = std::exchange(start_, std::nullopt);
  admitted_ = false;
  counted_ = 0;
  entry_ = {};
  const std::string reason = std::exchange(reason_, {});
  if (incoming.text) return {};
  if (incoming.kept) return router_.route_from_agent(peer_, incoming.bytes);
  if (!start || start->size != incoming.size) return {};
  return {.kind = Route::Kind::Swallow, .header = start->header, .reason = reason};
}

}  // namespace vlk::relay
