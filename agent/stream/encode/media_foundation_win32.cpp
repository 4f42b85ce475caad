// Loads mfplat.dll.
#include "stream/encode/media_foundation_win32.h"

namespace vlk::agent {
namespace {

template <typename... Arguments>
HRESULT WINAPI not_available(Arguments...) {
  return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
}

// Finds the function in the library. False if the library does not export it.
template <typename Function>
bool find(HMODULE library, const char* name, Function& function) {
  // The cast goes through void(*)(), because the two function types are unrelated.
  function = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(library, name)));
  return function != nullptr;
}

MediaFoundation load() {
  constexpr MediaFoundation kNone = {not_available, not_available, not_available,
                                     not_available, not_available, not_available};
  // Only the system's own folder is searched, so that no library beside the executable is loaded by mistake.
  const HMODULE library = LoadLibraryExW(L"mfplat.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (library == nullptr) return kNone;
  MediaFoundation found = {};
  const bool complete = find(library, "MFStartup", found.Startup) &&
                        find(library, "MFShutdown", found.Shutdown) &&
                        find(library, "MFTEnumEx", found.EnumTransforms) &&
                        find(library, "MFCreateMediaType", found.CreateMediaType) &&
                        find(library, "MFCreateSample", found.CreateSample) &&
                        find(library, "MFCreateMemoryBuffer", found.CreateMemoryBuffer);
  return complete ? found : kNone;
}

}  // namespace

const MediaFoundation& media_foundation() {
  static const MediaFoundation functions = load();
  return functions;
}

}  // namespace vlk::agent
