// The H.264 encoder on a Windows without Media Foundation.
#include <windows.h>

#include <cwchar>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stream/encode/h264_encoder.h"
#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/seam.h"

namespace {

std::vector<DWORD> searches;  // the flags with which mfplat.dll was searched

HMODULE WINAPI load_all_but_mfplat(const wchar_t* name, HANDLE file, DWORD flags) {
  static auto* const system = vlk::test::real<decltype(LoadLibraryExW)>("kernel32.dll", "LoadLibraryExW");
  if (_wcsicmp(name, L"mfplat.dll") != 0) return system(name, file, flags);
  searches.push_back(flags);
  SetLastError(ERROR_MOD_NOT_FOUND);
  return nullptr;
}

}  // namespace

extern "C" {
HMODULE(WINAPI* __imp_LoadLibraryExW)(const wchar_t*, HANDLE, DWORD) = load_all_but_mfplat;
}

namespace vlk::agent {
namespace {

TEST(MissingMediaFoundation, OpeningFailsAsWhenMediaFoundationDoesNotStart) {
  test::remove_debug_log();
  CapturedFrame frame;
  frame.width = frame.height = 16;
  frame.stride = 64;
  frame.pixels.resize(16 * 64);
  std::vector<std::uint8_t> out;
  {
    H264Encoder encoder;
    EXPECT_FALSE(encoder.Init(16, 16, 15, 4000000));
    EXPECT_FALSE(encoder.Encode(frame, out, true));
    EXPECT_FALSE(encoder.Init(32, 16, 15, 4000000));
    encoder.Shutdown();
  }
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(test::debug_log(),
            "encoder: MFStartup failed hr=0x00000000\nencoder: MFStartup failed hr=0x00000000\n");
  EXPECT_EQ(searches, std::vector<DWORD>{LOAD_LIBRARY_SEARCH_SYSTEM32})
      << "the library is searched once, and only among the system's";
}

}  // namespace
}  // namespace vlk::agent
