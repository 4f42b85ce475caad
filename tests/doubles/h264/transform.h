// The two H.264 encoder transforms. The synchronous one answers within each call; the asynchronous one works
// on its own thread and reports by events.
#pragma once

#include <windows.h>

#include "tests/doubles/boards.h"

namespace vantelink_doubles {

CodecBoard& codec_board();

// Class identifiers under which the transforms are registered, by Transform.
extern const GUID kTransformClasses[kTransforms];

// A new transform, as the interface asked for.
HRESULT make_transform(Transform kind, REFIID iid, void** result);

}  // namespace vantelink_doubles
