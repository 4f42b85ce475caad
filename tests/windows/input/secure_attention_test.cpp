// The secure-attention sequence, tested with a double of sas.dll in this program's folder and without any
// sas.dll.
#include <windows.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "input/injector.h"
#include "tests/windows/support/debug_log_file.h"

namespace {

const char* library_instead = nullptr;
bool no_library = false;
int loads = 0, frees = 0;

HMODULE WINAPI load_library(LPCSTR name) {
  static auto* const system = reinterpret_cast<decltype(load_library)*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "LoadLibraryA")));
  if (std::string(name) != "sas.dll") return system(name);
  ++loads;
  if (no_library) return nullptr;
  return system(library_instead ? library_instead : name);
}

BOOL WINAPI free_library(HMODULE module) {
  static auto* const system = reinterpret_cast<decltype(free_library)*>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "FreeLibrary")));
  ++frees;
  return system(module);
}

const bool log_requested = _putenv("VLK_DEBUG_INPUT=1") == 0;

}  // namespace

extern "C" {
void* __imp_LoadLibraryA = reinterpret_cast<void*>(load_library);
void* __imp_FreeLibrary = reinterpret_cast<void*>(free_library);
}

namespace vlk::agent {
namespace {

std::string calls_path() {
  const std::string log = test::debug_log_path();
  return log.substr(0, log.rfind('\\') + 1) + "vlk_sas.txt";
}

std::string calls() {
  std::ifstream file(calls_path());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class SecureAttention : public testing::Test {
 protected:
  void SetUp() override { Reset(); }
  void TearDown() override { Reset(); }

  static void Reset() {
    library_instead = nullptr;
    no_library = false;
    loads = frees = 0;
    test::remove_debug_log();
    std::remove(calls_path().c_str());
  }
};

TEST_F(SecureAttention, IsSentEvenWithoutASession) {
  SetInputSessionActive(false);
  SendSecureAttention();
  EXPECT_EQ(calls(), "SendSAS 0\n");
  EXPECT_EQ(test::debug_log(), "[sas] SendSAS issued\n");
  EXPECT_EQ(loads, 1);
  EXPECT_EQ(frees, 1);
}

TEST_F(SecureAttention, LibraryIsLoadedAgainForEachRequest) {
  SetInputSessionActive(true);
  SendSecureAttention();
  SendSecureAttention();
  SetInputSessionActive(false);
  EXPECT_EQ(calls(), "SendSAS 0\nSendSAS 0\n");
  EXPECT_EQ(loads, 2);
  EXPECT_EQ(frees, 2);
}

TEST_F(SecureAttention, MissingLibraryIsLogged) {
  no_library = true;
  SendSecureAttention();
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(test::debug_log(), "[sas] sas.dll not available\n");
  EXPECT_EQ(frees, 0);
}

TEST_F(SecureAttention, LibraryWithoutTheEntryPointIsLoggedAndReleased) {
  library_instead = "user32.dll";
  SendSecureAttention();
  EXPECT_EQ(calls(), "");
  EXPECT_EQ(test::debug_log(), "[sas] SendSAS entrypoint missing\n");
  EXPECT_EQ(frees, 1);
}

}  // namespace
}  // namespace vlk::agent
