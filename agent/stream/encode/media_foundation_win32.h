// The functions of Media Foundation that the H.264 encoder calls. Their library, mfplat.dll, is loaded at run
// time: Windows editions without media features and many servers lack it, and the system does not start an
// executable that imports a missing library. For Windows files only.
#pragma once

#include <windows.h>
#include <mfapi.h>

namespace vlk::agent {

struct MediaFoundation {
  decltype(&MFStartup) Startup;
  decltype(&MFShutdown) Shutdown;
  decltype(&MFTEnumEx) EnumTransforms;
  decltype(&MFCreateMediaType) CreateMediaType;
  decltype(&MFCreateSample) CreateSample;
  decltype(&MFCreateMemoryBuffer) CreateMemoryBuffer;
};

// The library's functions. If Windows has no Media Foundation, each of them returns an error. The first call
// loads the library, which stays loaded. Callable on any thread.
[[nodiscard]] const MediaFoundation& media_foundation();

}  // namespace vlk::agent
