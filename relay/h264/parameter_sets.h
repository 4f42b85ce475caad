// Completes the sequence parameter sets of the machines' H.264 streams. Their encoders say nothing of
// reordering, so that a browser holds back up to 16 frames in case there is some, and nothing of colours, so
// that it takes BT.709 for what was converted by BT.601.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace vlk::relay {

// The parameter set `unit` (header byte first, no start code, emulation bytes in place) with limited range
// and BT.601's matrix declared, and with the promise that pictures leave the decoder in the order in which
// they enter if `in_order` is true; without it, what was said of reordering stays. All else is kept bit for
// bit. Nothing when the unit is no parameter set that is understood to its last bit: it is then best passed
// on as it came.
std::optional<std::vector<std::uint8_t>> complete_parameter_set(std::span<const std::uint8_t> unit,
                                                                bool in_order);

}  // namespace vlk::relay
