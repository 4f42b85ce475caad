// The H.264 double as a program of ours uses it: loaded from the folder "doubles" beside the program or from
// the program's own, registered with the system at will, and sharing its board.
#pragma once

#include <fstream>
#include <string>

#include <windows.h>

#include "tests/doubles/board_win32.h"
#include "tests/doubles/boards.h"

namespace vlk::test {

using vantelink_doubles::CodecBoard;

// The double's library, for as long as the program runs, and the board that it shares with this test.
class Double {
 public:
  Double() {
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
  }
  // Words out of "sync" and "async".
  bool Register(const wchar_t* kinds) { return install_ != nullptr && SUCCEEDED(install_(TRUE, kinds)); }
  CodecBoard& board() { return *board_; }
  bool shared() const { return board_ != &fallback_; }

 private:
  using Install = HRESULT WINAPI(BOOL, const wchar_t*);
  CodecBoard fallback_ = {};
  CodecBoard* board_ = nullptr;
  Install* install_ = nullptr;
};

inline Double& the_double() {
  static Double instance;
  return instance;
}

}  // namespace vlk::test
