// The agent's window, looked at and worked from another process.
#include <gtest/gtest.h>
#include <windows.h>

#include <functional>
#include <string>

#include "shell/main_window.h"
#include "stream/capture.h"

namespace vlk::agent {
namespace {

constexpr DWORD kPatience = 20000;  // milliseconds

bool eventually(const std::function<bool()>& condition) {
  const ULONGLONG deadline = GetTickCount64() + kPatience;
  while (!condition()) {
    if (GetTickCount64() > deadline) return false;
    Sleep(10);
  }
  return true;
}

std::wstring agent_path() {
  wchar_t path[MAX_PATH];
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder = path;
  folder.resize(folder.find_last_of(L'\\'));
  folder.resize(folder.find_last_of(L'\\'));
  return folder + L"\\VantelinkAgent.exe";
}

// A copy of the agent that talks to nobody.
class AgentProcess {
 public:
  explicit AgentProcess(const std::wstring& switches, WORD show = SW_SHOWNORMAL) {
    std::wstring line = L"\"" + agent_path() + L"\" --host 127.0.0.1 --port 9 " + switches;
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = show;
    EXPECT_TRUE(CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                               &process_));
  }
  ~AgentProcess() {
    TerminateProcess(process_.hProcess, 99);
    WaitForSingleObject(process_.hProcess, kPatience);
    CloseHandle(process_.hProcess);
    CloseHandle(process_.hThread);
  }
  AgentProcess(const AgentProcess&) = delete;
  AgentProcess& operator=(const AgentProcess&) = delete;

  bool running() const { return WaitForSingleObject(process_.hProcess, 0) == WAIT_TIMEOUT; }
  DWORD exit_code() const {
    EXPECT_EQ(WaitForSingleObject(process_.hProcess, kPatience), WAIT_OBJECT_0) << "it did not end";
    DWORD code = 99;
    GetExitCodeProcess(process_.hProcess, &code);
    return code;
  }

 private:
  PROCESS_INFORMATION process_ = {};
};

HWND find_window() {
  HWND window = nullptr;
  EXPECT_TRUE(eventually([&] { return (window = FindWindowW(kWindowClass, nullptr)) != nullptr; }));
  return window;
}

bool shown(HWND window) {
  return IsWindowVisible(window) != FALSE;
}

class WindowTest : public testing::Test {
 protected:
  void TearDown() override {
    EXPECT_TRUE(eventually([] { return FindWindowW(kWindowClass, nullptr) == nullptr; }));
  }
};

TEST_F(WindowTest, HasTheSizeStyleAndTitleOfItsDesign) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  EXPECT_TRUE(eventually([&] { return shown(window); }));
  RECT client;
  GetClientRect(window, &client);
  EXPECT_EQ(client.right, 360);
  EXPECT_EQ(client.bottom, 440);
  EXPECT_EQ(static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE)) & ~DWORD{WS_VISIBLE | WS_CLIPSIBLINGS},
            0x00CA0000u);
  wchar_t title[64] = {};
  GetWindowTextW(window, title, 64);
  EXPECT_STREQ(title, L"Maravek Remote Support");
}

TEST_F(WindowTest, PaintsTheLogoInItsPlaceOnTheWindowsColour) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  POINT origin = {0, 0};
  ClientToScreen(window, &origin);
  // By a copy of the screen, as a single pixel's reading does not see other processes' windows here.
  const auto pixel = [&](int x, int y) {
    CapturedFrame frame;
    ScreenCapturer().CaptureGdi(frame);
    const std::uint8_t* const bytes =
        &frame.pixels[static_cast<std::size_t>(origin.y + y) * static_cast<std::size_t>(frame.stride) +
                      static_cast<std::size_t>(origin.x + x) * 4];
    return RGB(bytes[2], bytes[1], bytes[0]);
  };
  const COLORREF ground = GetSysColor(COLOR_WINDOW);
  // The mark's tile is dark and begins a little inside the picture's left edge at x = 50.
  EXPECT_TRUE(eventually([&] { return pixel(40, 60) == ground && pixel(62, 80) != ground; }));
  EXPECT_EQ(pixel(180, 10), ground);
  EXPECT_EQ(pixel(180, 300), ground);
}

TEST_F(WindowTest, CloseAndMinimiseHideAndShowingBringsItBack) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  ASSERT_TRUE(eventually([&] { return shown(window); }));
  SendMessageW(window, WM_CLOSE, 0, 0);
  EXPECT_FALSE(shown(window));
  PostMessageW(window, WM_SHOW_MAIN, 0, 0);
  EXPECT_TRUE(eventually([&] { return shown(window); }));
  ShowWindow(window, SW_MINIMIZE);
  EXPECT_TRUE(eventually([&] { return !shown(window); }));
  SendMessageW(window, WM_COMMAND, MAKEWPARAM(40001, 77), 0);
  EXPECT_TRUE(eventually([&] { return shown(window) && !IsIconic(window); }));
  SendMessageW(window, WM_SIZE, SIZE_MAXIMIZED, 0);
  EXPECT_TRUE(shown(window));
  EXPECT_TRUE(agent.running());
}

TEST_F(WindowTest, StartsHiddenWithTheSwitch) {
  const AgentProcess agent(L"--unattended");
  const HWND window = find_window();
  SendMessageW(window, WM_NULL, 0, 0);  // answered once the message loop runs, behind the first showing
  EXPECT_FALSE(shown(window));
}

TEST_F(WindowTest, SecondCopyShowsTheFirstAndEndsWithZero) {
  const AgentProcess first(L"--unattended");
  const HWND window = find_window();
  SendMessageW(window, WM_NULL, 0, 0);
  ASSERT_FALSE(shown(window));
  const AgentProcess second(L"--unattended");
  EXPECT_EQ(second.exit_code(), 0u);
  EXPECT_TRUE(eventually([&] { return shown(window); })) << "also when the second copy was to be hidden";
  EXPECT_TRUE(first.running());
}

TEST_F(WindowTest, MenuExitAndUpdateExitEndTheProcessWithZero) {
  for (const bool update : {false, true}) {
    const AgentProcess agent(L"");
    const HWND window = find_window();
    if (update) {
      PostMessageW(window, WM_EXIT_FOR_UPDATE, 0, 0);
    } else {
      PostMessageW(window, WM_COMMAND, 40003, 0);
    }
    EXPECT_EQ(agent.exit_code(), 0u);
  }
}

TEST_F(WindowTest, EmptyPayloadsAndUnknownCommandsAreIgnored) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  for (UINT message = WM_AGENT_STATUS; message <= WM_CONSENT_CANCEL; ++message) {
    if (message != WM_EXIT_FOR_UPDATE) SendMessageW(window, message, 0, 0);
  }
  for (const WPARAM id : {WPARAM{1003}, WPARAM{40002}, WPARAM{1}, WPARAM{0xFFFF}}) {
    SendMessageW(window, WM_COMMAND, id, 0);
  }
  SendMessageW(window, WM_AGENT_STATUS, 9999, -1);
  EXPECT_EQ(SendMessageW(window, WM_NULL, 0, 0), 0);
  EXPECT_TRUE(agent.running());
}

}  // namespace
}  // namespace vlk::agent
