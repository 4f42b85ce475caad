// Decides about arriving messages.
#include "relay/links/intake.h"

#include "relay/wire/console_messages.h"

namespace vlk::relay {

bool Intake::keep(Incoming& incoming) {
  if (peer_.id.empty()) return true;
  if (incoming.text) return false;
  if (!start_) {
    start_ = read_start(incoming.bytes);
    if (!start_) return true;
    if (!admit(*start_)) return false;
    incoming.bytes.reserve(static_cast<std::size_t>(start_->size));
  }
  if (incoming.size <= start_->size && router_.still_wanted(peer_, *start_)) return true;
  claim_ = {};
  return false;
}

bool Intake::admit(const EnvelopeStart& start) {
  Arrival arrival = router_.arrival_from_agent(peer_, start);
  claim_ = std::move(arrival.claim);
  reason_ = std::move(arrival.reason);
  if (arrival.kind == Arrival::Kind::TooLarge) {
    const auto type = static_cast<std::uint8_t>(start.header.type);
    arrival.to->send_text(too_large_message(start.header.session, type, start.size));
    log_("dropped a message of type " + std::to_string(type) + " with " + std::to_string(start.size) +
         " bytes: too large");
  }
  return arrival.kind == Arrival::Kind::Hold;
}

Route Intake::route(Incoming& incoming) {
  const auto start = std::exchange(start_, std::nullopt);
  const std::string reason = std::exchange(reason_, {});
  if (incoming.text) return {};
  if (incoming.kept) return router_.route_from_agent(peer_, incoming.bytes);
  if (!start || start->size != incoming.size) return {};
  return {.kind = Route::Kind::Swallow, .header = start->header, .reason = reason};
}

}  // namespace vlk::relay
