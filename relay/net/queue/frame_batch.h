// Pieces of one peer's messages as WebSocket frames that are written together.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <boost/asio/buffer.hpp>

#include "relay/net/queue/outbox.h"

namespace vlk::relay {

class FrameBatch {
 public:
  // `parts` is as in Division.
  explicit FrameBatch(bool parts) : parts_(parts) {}

  void add(OutgoingPiece piece);

  [[nodiscard]] bool empty() const { return frames_.empty(); }
  // The bytes of all frames, with their headers.
  [[nodiscard]] std::size_t bytes() const { return bytes_; }
  // The frames, in the order of add(). The buffers are valid until the next change.
  [[nodiscard]] std::vector<boost::asio::const_buffer> buffers() const;
  // Calls `act` with each piece, in the order of add().
  template <class Act>
  void each(Act act) const {
    for (const Frame& frame : frames_)
      act(frame.piece);
  }

 private:
  struct Frame {
    OutgoingPiece piece{};
    std::array<std::uint8_t, 12> header{};  // of the frame, and of the part if the piece is one
    std::size_t header_size = 0;
  };

  bool parts_;
  std::vector<Frame> frames_;
  std::size_t bytes_ = 0;
};

}  // namespace vlk::relay
