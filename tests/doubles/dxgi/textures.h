// The textures of the double. The including file defines CINTERFACE first.
#pragma once

#include <d3d11.h>

#include <memory>

#include "tests/doubles/dxgi/objects.h"

namespace vantelink_doubles {

// Creates the desktop texture of an acquired frame with the picture of this number. The picture is painted
// when the texture is copied. While `*held` is false the frame is released, and its texture must not be used.
Object* make_desktop_texture(Object* device, std::int32_t place, SIZE size, std::int32_t number,
                             std::shared_ptr<bool> held);

}  // namespace vantelink_doubles
