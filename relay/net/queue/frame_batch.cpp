// Forms WebSocket frames. A server does not mask them.
#include "relay/net/queue/frame_batch.h"

#include <utility>

#include "relay/wire/part.h"
#include "wire/websocket.h"

namespace vlk::relay {
namespace {

constexpr std::uint8_t kFinal = 0x80;
constexpr std::size_t kLongestShort = 125;  // bytes whose number stands in the second byte

}  // namespace

void FrameBatch::add(OutgoingPiece piece) {
  const bool part = parts_ && !(piece.first && piece.last);
  const std::size_t size = piece.size + (part ? kPartHeaderSize : 0);
  Frame frame;
  const auto put = [&](std::size_t byte) {
    frame.header[frame.header_size++] = static_cast<std::uint8_t>(byte);
  };
  const std::uint8_t opcode = part || (piece.first && !piece.text) ? kWsBinary : piece.first ? kWsText : 0;
  put((piece.last || part ? kFinal : 0U) | opcode);
  if (size <= kLongestShort) {
    put(size);
  } else {
    const bool is_long = size > UINT16_MAX;
    put(is_long ? 127 : 126);
    for (int shift = is_long ? 56 : 8; shift >= 0; shift -= 8)
      put(size >> shift & 0xFF);
  }
  if (part) {
    const auto lane = static_cast<std::uint8_t>(piece.lane);
    for (const std::uint8_t byte : part_header(piece.first, piece.last, piece.text, lane))
      put(byte);
  }
  bytes_ += frame.header_size + piece.size;
  frame.piece = std::move(piece);
  frames_.push_back(std::move(frame));
}

std::vector<boost::asio::const_buffer> FrameBatch::buffers() const {
  std::vector<boost::asio::const_buffer> buffers;
  buffers.reserve(3 * frames_.size());
  for (const Frame& frame : frames_) {
    buffers.emplace_back(frame.header.data(), frame.header_size);
    for (const auto& run : frame.piece.bytes())
      if (!run.empty()) buffers.emplace_back(run.data(), run.size());
  }
  return buffers;
}

}  // namespace vlk::relay
