// The main window's procedure and record, tested inside the process with a real client that finds no server.
#include "shell/main_window.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>

#include <gtest/gtest.h>

#include "shell/texts.h"
#include "shell/tray.h"
#include "tests/windows/support/shell_window.h"
#include "update/manifest.h"

namespace {

std::atomic<const void*> watched = nullptr;
std::atomic<int> watched_frees = 0;

void release(void* memory) {
  if (memory != nullptr && memory == watched) ++watched_frees;
  std::free(memory);
}

}  // namespace

void operator delete(void* memory) noexcept {
  release(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
  release(memory);
}

void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size > 0 ? size : 1)) return memory;
  throw std::bad_alloc();
}

namespace vlk::agent {
namespace {

constexpr wchar_t kBareClass[] = L"MainWindowTestWithoutRecord";

// The real procedure, except that the window never gets its record.
LRESULT CALLBACK procedure_without_record(HWND window, UINT message, WPARAM wparam, LPARAM lparam) {
  if (message == WM_CREATE) return 0;
  return main_window_procedure(window, message, wparam, lparam);
}

HWND make_window_without_record() {
  WNDCLASSW type = {};
  type.lpfnWndProc = procedure_without_record;
  type.hInstance = GetModuleHandleW(nullptr);
  type.lpszClassName = kBareClass;
  RegisterClassW(&type);
  return CreateWindowExW(0, kBareClass, L"", WS_CAPTION | WS_VISIBLE, 50, 50, 360, 440, nullptr, nullptr,
                         type.hInstance, nullptr);
}

// Removes WM_QUIT from the queue and sets `code` to its exit code. Returns false if the queue has no WM_QUIT.
bool take_quit(int& code) {
  MSG message;
  while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
    if (message.message == WM_QUIT) {
      code = static_cast<int>(message.wParam);
      return true;
    }
  }
  return false;
}

std::wstring text_of(HWND window) {
  wchar_t text[256] = {};
  GetWindowTextW(window, text, 256);
  return text;
}

class MainWindowTest : public testing::Test {
 protected:
  MainWindowTest() { ShowWindow(window_, SW_SHOW); }

  ShellWindow shell_;
  MainWindow& main_ = shell_.main;
  const HWND window_ = shell_.window;
};

TEST_F(MainWindowTest, CreatingTheWindowStoresItsRecordAndStartsTheClient) {
  ASSERT_NE(window_, nullptr);
  EXPECT_EQ(reinterpret_cast<MainWindow*>(GetWindowLongPtrW(window_, GWLP_USERDATA)), &main_);
  EXPECT_EQ(main_.window, window_);
  EXPECT_TRUE(main_.client);
  EXPECT_EQ(main_.rep_count, 0);
  EXPECT_FALSE(main_.exiting);
}

TEST_F(MainWindowTest, PaintingWorksWithoutTheLogosResource) {
  EXPECT_FALSE(main_.logo);
  InvalidateRect(window_, nullptr, FALSE);
  EXPECT_TRUE(UpdateWindow(window_));
  EXPECT_FALSE(GetUpdateRect(window_, nullptr, FALSE)) << "the window must be painted completely";
}

TEST_F(MainWindowTest, StatusOfTheClientIsStoredInTheRecordAndShownInTheStatusLine) {
  EXPECT_EQ(text_of(main_.status_label), ui_texts().status_connecting) << "the first text, before any status";
  main_.status = 77;
  // The connection fails at once, so the earlier status may already have been replaced.
  EXPECT_TRUE(test::pump_until([&] { return main_.status == static_cast<std::int32_t>(Status::Offline); }));
  EXPECT_EQ(text_of(main_.status_label), ui_texts().status_offline);
}

TEST_F(MainWindowTest, StatusBeforeAnyConnectionReplacesTheFirstTextOfTheStatusLine) {
  shell_.stop_client();
  EXPECT_EQ(SendMessageW(window_, WM_AGENT_STATUS, static_cast<WPARAM>(Status::InSession), 3), 0);
  EXPECT_EQ(main_.status, 3);
  EXPECT_EQ(main_.rep_count, 3);
  EXPECT_EQ(text_of(main_.status_label), ui_texts().status_in_session);
  SendMessageW(window_, WM_AGENT_STATUS, 9999, -1);
  EXPECT_EQ(main_.status, 9999);
  EXPECT_EQ(main_.rep_count, -1);
  EXPECT_EQ(text_of(main_.status_label), L"");
}

TEST_F(MainWindowTest, NoticeIsShownUntilTheNextStatusAndItsMemoryIsFreed) {
  shell_.stop_client();
  auto* const notice = new std::wstring(L"Tengd við þjón");
  watched = notice;
  watched_frees = 0;
  EXPECT_EQ(SendMessageW(window_, WM_STATUS_TEXT, reinterpret_cast<WPARAM>(notice), 0), 0);
  watched = nullptr;
  EXPECT_EQ(watched_frees, 1);
  EXPECT_EQ(text_of(main_.status_label), L"Tengd við þjón");
  SendMessageW(window_, WM_STATUS_TEXT, 0, 0);
  EXPECT_EQ(text_of(main_.status_label), L"Tengd við þjón") << "an empty payload is ignored";
  SendMessageW(window_, WM_AGENT_STATUS, static_cast<WPARAM>(Status::Online), 0);
  EXPECT_EQ(text_of(main_.status_label), ui_texts().status_online);
}

TEST_F(MainWindowTest, ClipboardContentIsAppliedAndItsMemoryIsFreed) {
  shell_.stop_client();
  const DWORD changes = GetClipboardSequenceNumber();
  auto* const payload = new std::vector<std::uint8_t>{1, 'a', 'b'};
  watched = payload;
  watched_frees = 0;
  EXPECT_EQ(SendMessageW(window_, WM_CLIPBOARD_INBOUND, reinterpret_cast<WPARAM>(payload), 0), 0);
  watched = nullptr;
  EXPECT_EQ(watched_frees, 1);
  EXPECT_NE(GetClipboardSequenceNumber(), changes);
  EXPECT_TRUE(IsClipboardFormatAvailable(CF_UNICODETEXT));
}

TEST_F(MainWindowTest, UpdateOfferOfTheSkippedVersionIsNotShownAndItsMemoryIsFreed) {
  shell_.stop_client();
  main_.skipped_version = "0.9";
  auto* const offer = new UpdateOffer{"0.9", "Setup.exe"};
  watched = offer;
  watched_frees = 0;
  EXPECT_EQ(SendMessageW(window_, WM_UPDATE_OFFER, reinterpret_cast<WPARAM>(offer), 0), 0);
  watched = nullptr;
  EXPECT_EQ(watched_frees, 1);
}

TEST_F(MainWindowTest, ClosingHidesTheWindowUnlessTheProgramIsExiting) {
  EXPECT_EQ(SendMessageW(window_, WM_CLOSE, 0, 0), 0);
  EXPECT_TRUE(IsWindow(window_));
  EXPECT_FALSE(IsWindowVisible(window_));
  SendMessageW(window_, WM_SHOW_MAIN, 0, 0);
  EXPECT_TRUE(IsWindowVisible(window_));
  main_.exiting = true;
  SendMessageW(window_, WM_CLOSE, 0, 0);
  EXPECT_FALSE(IsWindow(window_));
  int code = 99;
  EXPECT_TRUE(take_quit(code));
  EXPECT_EQ(code, 0);
  EXPECT_TRUE(main_.client) << "the client is stopped, but kept until the process ends";
}

TEST_F(MainWindowTest, MinimisingHidesTheWindowAndOtherSizeChangesDoNot) {
  for (const WPARAM size : {WPARAM{SIZE_RESTORED}, WPARAM{SIZE_MAXIMIZED}, WPARAM{SIZE_MAXSHOW}}) {
    SendMessageW(window_, WM_SIZE, size, 0);
    EXPECT_TRUE(IsWindowVisible(window_)) << size;
  }
  EXPECT_EQ(SendMessageW(window_, WM_SIZE, SIZE_MINIMIZED, 0), 0);
  EXPECT_FALSE(IsWindowVisible(window_));
}

TEST_F(MainWindowTest, ExitByMenuOrUpdateDestroysTheWindow) {
  SendMessageW(window_, WM_COMMAND, MAKEWPARAM(kMenuExit, 0xFFFF), 0);
  EXPECT_TRUE(main_.exiting);
  EXPECT_FALSE(IsWindow(window_));
  int code = 99;
  EXPECT_TRUE(take_quit(code));

  const ShellWindow second;
  SendMessageW(second.window, WM_EXIT_FOR_UPDATE, 0, 0);
  EXPECT_TRUE(second.main.exiting);
  EXPECT_FALSE(IsWindow(second.window));
  EXPECT_TRUE(take_quit(code));
}

TEST(MainWindowWithoutRecord, MessagesThatNeedTheRecordAreIgnored) {
  const HWND window = make_window_without_record();
  ASSERT_NE(window, nullptr);
  SendMessageW(window, WM_AGENT_STATUS, 2, 1);
  SendMessageW(window, WM_CONSENT_REQUEST, 0, 0);
  SendMessageW(window, WM_TRAY_NOTIFY, 0, 0);
  SendMessageW(window, WM_EXIT_FOR_UPDATE, 0, 0);
  SendMessageW(window, WM_COMMAND, kMenuExit, 0);
  EXPECT_TRUE(IsWindow(window));
  std::wstring notice = L"owned by the test";
  SendMessageW(window, WM_STATUS_TEXT, reinterpret_cast<WPARAM>(&notice), 0);
  EXPECT_EQ(notice, L"owned by the test");
  ShowWindow(window, SW_HIDE);
  SendMessageW(window, WM_SHOW_MAIN, 0, 0);
  SendMessageW(window, WM_COMMAND, kMenuOpen, 0);
  EXPECT_FALSE(IsWindowVisible(window));
  ShowWindow(window, SW_SHOW);
  UpdateWindow(window);  // paints only the background
  // Without a record the system handles WM_CLOSE.
  SendMessageW(window, WM_CLOSE, 0, 0);
  EXPECT_FALSE(IsWindow(window));
  int code = 99;
  EXPECT_TRUE(take_quit(code));
  EXPECT_EQ(code, 0);
}

}  // namespace
}  // namespace vlk::agent
