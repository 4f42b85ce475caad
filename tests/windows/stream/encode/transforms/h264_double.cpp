// Loads the double's DLL and calls its registration.
#include "tests/windows/stream/encode/transforms/h264_double.h"

#include <fstream>
#include <string>

#include "tests/doubles/board_win32.h"

namespace vlk::test {

using vantelink_doubles::CodecBoard;

Double::Double() {
  char folder[MAX_PATH] = {};
  GetTempPathA(MAX_PATH, folder);
  const std::string path = std::string(folder) + "codec.board";
  std::ofstream(path, std::ios::binary)
      .write(std::string(sizeof(CodecBoard), '\0').data(), sizeof(CodecBoard));
  SetEnvironmentVariableA(vantelink_doubles::kCodecBoardVariable, path.c_str());
  board_ = &vantelink_doubles::map_board(vantelink_doubles::kCodecBoardVariable, fallback_);

  wchar_t library[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, library, MAX_PATH);
  std::wstring name(library);
  name.resize(name.find_last_of(L"\\/") + 1);
  HMODULE loaded = LoadLibraryW((name + L"doubles\\h264.dll").c_str());
  if (loaded == nullptr) loaded = LoadLibraryW((name + L"h264.dll").c_str());
  install_ = reinterpret_cast<Install*>(reinterpret_cast<void*>(GetProcAddress(loaded, "DllInstall")));
  shut_down_events_ =
      reinterpret_cast<void(WINAPI*)()>(reinterpret_cast<void*>(GetProcAddress(loaded, "ShutDownEvents")));
}

Double& the_double() {
  static Double instance;
  return instance;
}

}  // namespace vlk::test
