// The two H.264 encoder transforms. The synchronous transform finishes its work within each call; the
// asynchronous transform works on its own thread and reports by events.
#pragma once

#include <windows.h>

#include "tests/doubles/boards.h"

namespace vantelink_doubles {

CodecBoard& codec_board();

// Class identifiers under which the transforms are registered, indexed by Transform.
extern const GUID kTransformClasses[kTransforms];

// Creates a transform and returns its interface `iid` in `result`.
HRESULT make_transform(Transform kind, REFIID iid, void** result);

}  // namespace vantelink_doubles
