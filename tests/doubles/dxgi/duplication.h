// The duplication of an output. The including file defines CINTERFACE first.
#pragma once

#include <dxgi1_2.h>

#include <memory>

#include "tests/doubles/dxgi/mirror.h"
#include "tests/doubles/dxgi/objects.h"

namespace vantelink_doubles {

// Creates the duplication of the output at this place of the board, which keeps the device alive. If `mirror`
// is not null, it provides the pictures and the changes.
Object* make_duplication(Object* device, std::int32_t place, std::shared_ptr<Mirror> mirror);

// Whether this process has a duplication of the output that is not destroyed. A lost one counts too.
bool is_duplicated(std::int32_t place);

DXGI_MODE_ROTATION rotation_of(std::int32_t place);

}  // namespace vantelink_doubles
