// Counts the open sessions on the board.
#include "tests/doubles/h264/session_slot.h"

#include "tests/doubles/h264/transform.h"

namespace vantelink_doubles {

std::unique_ptr<SessionSlot> SessionSlot::Take() {
  CodecBoard& board = codec_board();
  const std::int32_t open = ++board.open_sessions + board.sessions_elsewhere;
  if (board.session_limit == 0 || open <= board.session_limit)
    return std::unique_ptr<SessionSlot>(new SessionSlot);
  --board.open_sessions;
  return nullptr;
}

SessionSlot::~SessionSlot() {
  if (!kept_) --codec_board().open_sessions;
}

}  // namespace vantelink_doubles
