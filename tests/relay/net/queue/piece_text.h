// The bytes of a piece of an outgoing message, as text.
#pragma once

#include <string>

#include "relay/net/queue/outbox.h"

namespace vlk::relay {

inline std::string text_of(const OutgoingPiece& piece) {
  std::string text;
  for (const auto part : piece.bytes())
    text.append(part.begin(), part.end());
  return text;
}

}  // namespace vlk::relay
