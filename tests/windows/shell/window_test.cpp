// The agent's window, inspected and operated from another process.
#include <windows.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32/gdiplus_win32.h"
#include "platform/win32/handles_win32.h"
#include "shell/main_window.h"
#include "stream/capture/capture.h"
#include "windows/support/agent_file.h"
#include "windows/support/painted_window.h"

namespace vlk::agent {
namespace {

constexpr DWORD kPatience = 30000;  // milliseconds

bool eventually(const std::function<bool()>& condition) {
  const ULONGLONG deadline = GetTickCount64() + kPatience;
  while (!condition()) {
    if (GetTickCount64() > deadline) return false;
    Sleep(10);
  }
  return true;
}

// A running agent that finds no server.
class AgentProcess {
 public:
  explicit AgentProcess(const std::wstring& switches, WORD show = SW_SHOWNORMAL) {
    std::wstring line = L"\"" + test::agent_file() + L"\" --host 127.0.0.1 --port 9 " + switches;
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
    EXPECT_EQ(WaitForSingleObject(process_.hProcess, kPatience), WAIT_OBJECT_0) << "the process did not end";
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

TEST_F(WindowTest, HasTheExpectedSizeStyleAndTitle) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  EXPECT_TRUE(eventually([&] { return shown(window); }));
  RECT client;
  GetClientRect(window, &client);
  EXPECT_EQ(client.right, 360);
  EXPECT_EQ(client.bottom, 440);
  EXPECT_EQ(static_cast<DWORD>(GetWindowLongPtrW(window, GWL_STYLE)) & ~DWORD{WS_VISIBLE | WS_CLIPSIBLINGS},
            0x00CA0000u);
  EXPECT_EQ(static_cast<DWORD>(GetWindowLongPtrW(window, GWL_EXSTYLE)) & ~DWORD{WS_EX_WINDOWEDGE}, 0u);
  EXPECT_EQ(GetClassLongPtrW(window, GCL_STYLE), 0u);
  EXPECT_EQ(GetMenu(window), nullptr);
  wchar_t title[64] = {};
  GetWindowTextW(window, title, 64);
  EXPECT_STREQ(title, L"Maravek Remote Support");
}

// The expected client area in top-down rows: the background and the executable's logo, drawn by GDI+.
std::vector<std::uint32_t> expected_client(int width, int height) {
  ULONG_PTR token = 0;
  const Gdiplus::GdiplusStartupInput input;
  Gdiplus::GdiplusStartup(&token, &input, nullptr);
  const UniqueLibrary file(LoadLibraryExW(test::agent_file().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE));
  const HRSRC found = FindResourceW(file.get(), MAKEINTRESOURCEW(101), MAKEINTRESOURCEW(10));
  const auto stream =
      stream_over_copy(LockResource(LoadResource(file.get(), found)), SizeofResource(file.get(), found));

  const BITMAPINFO info = top_down_bitmap(width, height);
  const UniqueMemoryDc dc(CreateCompatibleDC(nullptr));
  void* bits = nullptr;
  const UniqueBitmap bitmap(CreateDIBSection(dc.get(), &info, DIB_RGB_COLORS, &bits, nullptr, 0));
  const Selection selection(dc.get(), bitmap.get());
  const RECT all = {0, 0, width, height};
  FillRect(dc.get(), &all, GetSysColorBrush(COLOR_WINDOW));
  {
    Gdiplus::Image logo(stream.Get());
    EXPECT_EQ(logo.GetWidth(), 2058u);
    Gdiplus::Graphics graphics(dc.get());
    graphics.SetInterpolationMode(Gdiplus::InterpolationModeHighQualityBicubic);
    graphics.DrawImage(&logo, 50, 20, 260, 95);
  }
  Gdiplus::GdiplusShutdown(token);
  GdiFlush();
  const auto* const pixels = static_cast<const std::uint32_t*>(bits);
  return {pixels, pixels + width * height};
}

// The rectangles of the child windows, in client pixels.
std::vector<RECT> children_of(HWND window) {
  std::vector<RECT> places;
  for (HWND child = nullptr; (child = FindWindowExW(window, child, nullptr, nullptr)) != nullptr;) {
    RECT place;
    GetWindowRect(child, &place);
    MapWindowPoints(nullptr, window, reinterpret_cast<POINT*>(&place), 2);
    places.push_back(place);
  }
  return places;
}

TEST_F(WindowTest, PaintsTheLogoOnTheWindowColour) {
  constexpr int kWidth = 360;
  constexpr int kHeight = 440;
  const std::vector<std::uint32_t> expected = expected_client(kWidth, kHeight);
  const AgentProcess agent(L"");
  const HWND window = find_window();
  ASSERT_TRUE(eventually([&] { return shown(window); }));
  POINT origin = {0, 0};
  ClientToScreen(window, &origin);
  // The test copies the screen, because under Wine GetPixel does not see the windows of other processes.
  const std::vector<RECT> controls = children_of(window);
  const auto is_control = [&](int x, int y) {
    return std::any_of(controls.begin(), controls.end(),
                       [point = POINT{x, y}](const RECT& place) { return PtInRect(&place, point) != FALSE; });
  };
  int wrong = 0;
  int first = -1;
  EXPECT_TRUE(eventually([&] {
    CapturedFrame frame;
    ScreenCapturer().CaptureGdi(frame);
    wrong = 0;
    for (int i = 0; i < kWidth * kHeight; ++i) {
      if (is_control(i % kWidth, i / kWidth)) continue;
      std::uint32_t seen;
      std::memcpy(&seen,
                  &frame.pixels[static_cast<std::size_t>(origin.y + i / kWidth) *
                                    static_cast<std::size_t>(frame.stride) +
                                static_cast<std::size_t>(origin.x + i % kWidth) * 4],
                  sizeof seen);
      if (((seen ^ expected[static_cast<std::size_t>(i)]) & 0xFFFFFF) != 0 && wrong++ == 0) first = i;
    }
    return wrong == 0;
  })) << wrong
      << " pixels differ, the first at " << first % kWidth << ", " << first / kWidth;
}

TEST_F(WindowTest, ClosingAndMinimisingHideTheWindowUntilItIsShownAgain) {
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

TEST_F(WindowTest, StartsHiddenWithTheUnattendedSwitch) {
  const AgentProcess agent(L"--unattended");
  const HWND window = find_window();
  SendMessageW(window, WM_NULL, 0, 0);  // returns once the message loop runs, after the first ShowWindow
  EXPECT_FALSE(shown(window));
}

TEST_F(WindowTest, SecondCopyShowsTheWindowOfTheFirstAndExitsWithZero) {
  const AgentProcess first(L"--unattended");
  const HWND window = find_window();
  SendMessageW(window, WM_NULL, 0, 0);
  ASSERT_FALSE(shown(window));
  const AgentProcess second(L"--unattended");
  EXPECT_EQ(second.exit_code(), 0u);
  EXPECT_TRUE(eventually([&] { return shown(window); })) << "even if the second copy was started hidden";
  EXPECT_TRUE(first.running());
}

TEST_F(WindowTest, SecondCopyBringsACoveredWindowToTheFront) {
  const AgentProcess first(L"");
  const HWND window = find_window();
  ASSERT_TRUE(eventually([&] { return shown(window); }));
  const HWND cover = CreateWindowExW(0, L"STATIC", L"", WS_POPUP | WS_VISIBLE, 0, 0, 800, 600, nullptr,
                                     nullptr, GetModuleHandleW(nullptr), nullptr);
  SetForegroundWindow(cover);
  ASSERT_TRUE(eventually([&] {
    test::pump_messages();
    return GetForegroundWindow() == cover;
  }));
  const AgentProcess second(L"");
  EXPECT_EQ(second.exit_code(), 0u);
  EXPECT_TRUE(eventually([&] {
    test::pump_messages();
    return GetForegroundWindow() == window;
  }));
  DestroyWindow(cover);
}

TEST_F(WindowTest, SecondCopyExitsWithZeroWhileTheFirstHasNoWindow) {
  // The mutex held by this test stands for a first copy that has not created its window.
  const vlk::UniqueHandle<HANDLE, CloseHandle> mutex(
      CreateMutexW(nullptr, TRUE, L"Local\\VantelinkAgentSingleton"));
  ASSERT_NE(GetLastError(), DWORD{ERROR_ALREADY_EXISTS});
  const AgentProcess second(L"");
  EXPECT_EQ(second.exit_code(), 0u);
  EXPECT_EQ(FindWindowW(kWindowClass, nullptr), nullptr);
}

TEST_F(WindowTest, ExitByMenuOrUpdateEndsTheProcessWithZero) {
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

TEST_F(WindowTest, EmptyMessagePayloadsAndUnknownCommandsAreIgnored) {
  const AgentProcess agent(L"");
  const HWND window = find_window();
  for (const UINT message : {WM_AGENT_STATUS, WM_TRAY_NOTIFY, WM_STATUS_TEXT, WM_CLIPBOARD_INBOUND,
                             WM_UPDATE_OFFER, WM_SHOW_MAIN, WM_CONSENT_CANCEL}) {
    SendMessageW(window, message, 0, 0);
  }
  for (const WPARAM id : {WPARAM{1001}, WPARAM{1004}, WPARAM{40004}, WPARAM{1}, WPARAM{0xFFFF}}) {
    SendMessageW(window, WM_COMMAND, id, 0);
  }
  SendMessageW(window, WM_AGENT_STATUS, 9999, -1);
  EXPECT_EQ(SendMessageW(window, WM_NULL, 0, 0), 0);
  EXPECT_TRUE(agent.running());
}

}  // namespace
}  // namespace vlk::agent
