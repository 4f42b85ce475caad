// Byte streams (Annex B) as encoders of different makers write them.
#pragma once

#include "tests/doubles/h264/engine.h"

namespace vantelink_doubles {

// Whether the stream contains the parameter sets before each key frame.
bool header_in_stream();
// Whether the output type contains the sequence header before the first output.
bool header_in_first_type();

// Returns the parameter sets, followed by filler (NAL type 12) up to the size set on the board.
Bytes sequence_header(const Bytes& parameter_sets);

// Puts an access unit delimiter and an SEI message before the picture if the board asks for them.
void add_delimiters(Bytes& picture);

}  // namespace vantelink_doubles
