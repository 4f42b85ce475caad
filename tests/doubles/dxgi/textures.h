// The textures of the double. The including file defines CINTERFACE first.
#pragma once

#include <d3d11.h>

#include <memory>

#include "tests/doubles/dxgi/mirror.h"
#include "tests/doubles/dxgi/objects.h"

namespace vantelink_doubles {

// A frame that a duplication has returned. Its texture gets its content when it is copied.
struct Frame {
  bool held = true;                // false after the release; the texture must then not be used
  std::int32_t number = 0;         // of the picture that is painted, unless there is a mirror
  std::shared_ptr<Mirror> mirror;  // provides the picture
  std::int64_t change = 0;         // number of the mirror's picture that the texture shows
};

// Creates the desktop texture of an acquired frame.
Object* make_desktop_texture(Object* device, std::int32_t place, SIZE size, std::shared_ptr<Frame> frame);

}  // namespace vantelink_doubles
