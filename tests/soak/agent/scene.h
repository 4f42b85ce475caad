// The scripted screen of the soak test's agent: two monitors whose pictures name the machine and count up.
#pragma once

#include <string>

namespace vantelink_soak {

// Sets the results of the fakes: monitors, thumbnails, and encoders whose output is not a picture but a line
// of text
//
//     SOAK NAME RUN COUNTER MONITOR LENGTH\n
//
// and LENGTH letters that follow from the counter. NAME and RUN have no spaces; RUN differs between two runs
// of the program. COUNTER rises by one with each picture and is never 0. In H.264 the line stands behind the
// first bytes of a slice. Call once, before any thread starts.
void set_scene(const std::string& name, const std::string& run);

}  // namespace vantelink_soak
