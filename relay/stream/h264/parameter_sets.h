// Completes the sequence parameter sets (SPS) of the machines' H.264 streams. Encoders do not declare whether
// pictures are reordered, so a browser delays up to 16 frames in case they are. Encoders do not declare the
// colours either, so a browser would decode with BT.709's matrix what was encoded with BT.601's.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Returns the parameter set `unit`, changed to declare limited range and BT.601's matrix. `unit` begins with
// the header byte, has no start code and contains its emulation bytes. If `in_order` is true, the result also
// declares that pictures leave the decoder in the order in which they enter; otherwise the reordering fields
// stay unchanged. All other fields stay the same bit for bit. Returns nothing if the unit is not a parameter
// set that can be parsed to its last bit; the caller then keeps the unit unchanged.
[[nodiscard]] std::optional<Bytes> complete_parameter_set(std::span<const std::uint8_t> unit, bool in_order);

}  // namespace vlk::relay
