// The system calls of the window, the settings panel and the tray icon, each recorded with its arguments, and
// a fixture for their tests. Registry calls are scripted and do not reach the real registry.
#pragma once

#include <windows.h>
#include <shellapi.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32/handles_win32.h"

namespace vlk::test {

using Lines = std::vector<std::string>;

constexpr LANGID kEnglish = 0x0409;
constexpr LANGID kIcelandic = 0x040F;

// The program's icon as the scripted LoadIcon returns it.
const HICON own_icon = reinterpret_cast<HICON>(0x1234);

struct ShellScript {
  LANGID language = kEnglish;
  bool icon_resource = false;  // whether the program has an icon of its own

  Lines calls;  // the recorded calls of the UI thread
  std::vector<NOTIFYICONDATAW> icons;
  std::vector<UniqueKernelHandle> threads;               // the threads that the UI thread has started
  std::function<void(const std::string& call)> on_call;  // called before a call is recorded
};
extern ShellScript shell_script;

std::string narrow(const wchar_t* text);

class ShellCallsTest : public testing::Test {
 protected:
  void SetUp() override { shell_script = ShellScript(); }

  // Clears the recorded calls.
  static void forget();
  // The recorded calls that begin with the text.
  static Lines calls_with(const std::string& begin);
  static std::string tip();
};

}  // namespace vlk::test
