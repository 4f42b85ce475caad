// The start of a downloaded installer, with every argument. The download itself is replaced.
#include <windows.h>
#include <shellapi.h>

#include <atomic>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/text.h"
#include "platform/win32/paths_win32.h"
#include "support/bytes/file_bytes.h"
#include "tests/windows/support/painted_window.h"
#include "update/update.h"
#include "update/update_threads.h"

namespace {

using Lines = std::vector<std::string>;

std::mutex lock;
Lines calls;
std::string installer;             // what the replaced download returns
HINSTANCE start_result = nullptr;  // what ShellExecute returns
std::atomic<bool> over = false;

void note(std::string line) {
  const std::lock_guard<std::mutex> guard(lock);
  calls.push_back(std::move(line));
}

std::string narrow(const wchar_t* text) {
  return text == nullptr ? "(none)" : vlk::WideToUtf8(text);
}

HINSTANCE WINAPI start_program(HWND window, LPCWSTR verb, LPCWSTR file, LPCWSTR parameters, LPCWSTR folder,
                               INT show) {
  note("ShellExecute " + std::string(window == nullptr ? "" : "window ") + narrow(verb) + '|' + narrow(file) +
       '|' + narrow(parameters) + '|' + narrow(folder) + '|' + std::to_string(show));
  note("file " + vantelink_test::file_bytes(file));
  return start_result;
}

}  // namespace

extern "C" {
void* __imp_ShellExecuteW = reinterpret_cast<void*>(start_program);
}

namespace vlk::agent {

std::optional<UpdateOffer> check_for_update(const std::string&, std::uint32_t) {
  return std::nullopt;
}

std::string fetch_installer(const std::string& host, std::uint32_t port, const std::string& file) {
  note("fetch " + host + ' ' + std::to_string(port) + ' ' + file);
  return installer;
}

namespace {

class DownloadTest : public testing::Test {
 protected:
  void SetUp() override {
    calls.clear();
    installer = "the installer";
    start_result = nullptr;
    over = false;
  }
  void TearDown() override { std::filesystem::remove(path()); }

  static std::wstring path() { return temporary_folder() + L"Ný uppsetning.exe"; }

  // Runs one download to its end.
  static Lines download() {
    start_update_download("relay.example", 8443, "Ný uppsetning.exe",
                          {[](const std::wstring& text) {
                             note("status " + WideToUtf8(text));
                             if (text.ends_with(L"failed")) over = true;
                           },
                           [] {
                             note("installer started");
                             over = true;
                           }});
    EXPECT_TRUE(test::pump_until([] { return over.load(); }));
    const std::lock_guard<std::mutex> guard(lock);
    return calls;
  }
};

TEST_F(DownloadTest, InstallerIsOpenedByTheShellAsAnyDocumentOnceItsFileIsComplete) {
  for (const INT_PTR result : {INT_PTR{33}, INT_PTR{SE_ERR_ACCESSDENIED}}) {
    calls.clear();
    over = false;
    start_result = reinterpret_cast<HINSTANCE>(result);
    EXPECT_EQ(download(), (Lines{"status Sæki uppfærslu… / Downloading update…",
                                 "fetch relay.example 8443 Ný uppsetning.exe",
                                 "ShellExecute open|" + WideToUtf8(path()) + "|(none)|(none)|1",
                                 "file the installer", "installer started"}))
        << "the result of the start is ignored";
  }
}

TEST_F(DownloadTest, NothingIsStartedWithoutAnInstaller) {
  installer.clear();
  EXPECT_EQ(download(), (Lines{"status Sæki uppfærslu… / Downloading update…",
                               "fetch relay.example 8443 Ný uppsetning.exe",
                               "status Uppfærsla mistókst / Update download failed"}));
}

}  // namespace
}  // namespace vlk::agent
