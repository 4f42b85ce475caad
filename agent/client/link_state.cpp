// Sends messages. All messages of the agent are written by these functions.
#include "client/link_state.h"

#include "wire/message_frame.h"

namespace vlk::agent {

bool LinkState::write_locked(const unsigned char* data, std::size_t length) {
  const MutexLock lock(write_lock);
  return ssl && ssl->write(data, length);
}

bool LinkState::send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
                     std::uint8_t flags) {
  const WireBytes frame = encode_message_frame(type, session_id, data, length, flags);
  return write_locked(frame.data.get(), frame.size);
}

}  // namespace vlk::agent
