// Looking for an update and launching it.
#include "update/update_threads_win32.h"

#include <cstdio>
#include <new>

#include "net/thread_records.h"
#include "platform/files/file_system.h"
#include "platform/text.h"
#include "platform/threads/detached_thread.h"
#include "platform/win32/paths_win32.h"
#include "platform/window_messages_win32.h"
#include "update/update.h"

#include <shellapi.h>

namespace vlk::agent {
namespace {

// Both languages in one text, whatever the user's.
constexpr wchar_t kDownloading[] = L"Sæki uppfærslu… / Downloading update…";
constexpr wchar_t kDownloadFailed[] = L"Uppfærsla mistókst / Update download failed";
constexpr wchar_t kSaveFailed[] = L"Uppfærsla mistókst / Update save failed";

struct Check {
  HWND window;
  std::string host;
  std::uint32_t port;
};

struct Download {
  HWND window;
  std::string host;
  std::uint32_t port;
  std::string file;
};

void run_check(const Check& check) {
  const auto offer = check_for_update(check.host, check.port);
  if (!offer) return;
  PostMessageW(check.window, WM_UPDATE_OFFER,
               reinterpret_cast<WPARAM>(new (std::nothrow) UpdateOffer(*offer)), 0);
}

// The name is not cleaned, so separators and ".." in it take effect.
std::wstring path_for(const std::string& file) {
  return temporary_folder() + Utf8ToWide(file);
}

// False if the file cannot be made; whether all of it reached the disk is not looked at.
bool save(const std::wstring& path, const std::string& bytes) {
  const UniqueStream file = OpenFile(path, L"wb");
  if (!file) return false;
  std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  return true;
}

void run_download(const Download& download) {
  post_status_text(download.window, kDownloading);
  const std::string installer = fetch_installer(download.host, download.port, download.file);
  if (installer.empty()) {
    post_status_text(download.window, kDownloadFailed);
    return;
  }
  const std::wstring path = path_for(download.file);
  if (!save(path, installer)) {
    post_status_text(download.window, kSaveFailed);
    return;
  }
  // The agent ends whether or not the installer started.
  ShellExecuteW(nullptr, L"open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  PostMessageW(download.window, WM_EXIT_FOR_UPDATE, 0, 0);
}

}  // namespace

void start_update_check(HWND window, const std::string& host, std::uint32_t port) {
  start_detached_thread([check = Check{window, host, port}] {
    const ThreadRecords records;
    run_check(check);
  });
}

void start_update_download(HWND window, const std::string& host, std::uint32_t port,
                           const std::string& file) {
  start_detached_thread([download = Download{window, host, port, file}] {
    const ThreadRecords records;
    run_download(download);
  });
}

void post_status_text(HWND window, const std::wstring& text) {
  PostMessageW(window, WM_STATUS_TEXT, reinterpret_cast<WPARAM>(new (std::nothrow) std::wstring(text)), 0);
}

}  // namespace vlk::agent
