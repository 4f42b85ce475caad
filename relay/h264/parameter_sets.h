// Completes the sequence parameter sets of the machines' H.264 streams. Encoders leave out reordering, so a
// browser delays up to 16 frames in case they need it. They also leave out colours, so a browser takes BT.709
// for what was converted by BT.601.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "relay/base/bytes.h"

namespace vlk::relay {

// The parameter set `unit` (header byte first, without a start code, with its emulation bytes), changed to
// declare limited range and BT.601's matrix. If `in_order` is true, it also promises that pictures leave the
// decoder in the order in which they enter; otherwise its reordering fields stay. All other fields stay bit
// for bit. Nothing if the unit is not a parameter set that can be parsed to its last bit; the caller then
// keeps it unchanged.
[[nodiscard]] std::optional<Bytes> complete_parameter_set(std::span<const std::uint8_t> unit, bool in_order);

}  // namespace vlk::relay
