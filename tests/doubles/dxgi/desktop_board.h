// The board of the duplication double, for the double itself and for Windows tests that contain the double.
#pragma once

#include "tests/doubles/boards.h"

namespace vantelink_doubles {

// The board in the file that the environment names, or this process's own.
DesktopBoard& desktop_board();

}  // namespace vantelink_doubles
