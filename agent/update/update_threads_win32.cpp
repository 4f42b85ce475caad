// Looks for an update, downloads it and starts it.
#include "update/update_threads.h"

#include <windows.h>
#include <shellapi.h>

#include <cstdio>
#include <utility>

#include "net/thread_records.h"
#include "platform/files/file_system.h"
#include "platform/text.h"
#include "platform/threads/detached_thread.h"
#include "platform/win32/paths_win32.h"
#include "update/update.h"

namespace vlk::agent {
namespace {

// Each text is in both languages, whatever the user's language is.
constexpr wchar_t kDownloading[] = L"Sæki uppfærslu… / Downloading update…";
constexpr wchar_t kDownloadFailed[] = L"Uppfærsla mistókst / Update download failed";
constexpr wchar_t kSaveFailed[] = L"Uppfærsla mistókst / Update save failed";

struct Download {
  std::string host;
  std::uint32_t port;
  std::string file;
  DownloadCallbacks callbacks;
};

// The name is used unchanged, so separators and ".." in it take effect.
std::wstring path_for(const std::string& file) {
  return temporary_folder() + Utf8ToWide(file);
}

// Writes the file. False if it cannot be created. A failure to write all bytes is ignored.
[[nodiscard]] bool save(const std::wstring& path, const std::string& bytes) {
  const UniqueStream file = OpenFile(path, L"wb");
  if (!file) return false;
  std::fwrite(bytes.data(), 1, bytes.size(), file.get());
  return true;
}

void run_download(const Download& download) {
  download.callbacks.on_status(kDownloading);
  const std::string installer = fetch_installer(download.host, download.port, download.file);
  if (installer.empty()) {
    download.callbacks.on_status(kDownloadFailed);
    return;
  }
  const std::wstring path = path_for(download.file);
  if (!save(path, installer)) {
    download.callbacks.on_status(kSaveFailed);
    return;
  }
  // The installer is reported as started in any case: the agent ends even if the installer could not be
  // started.
  ShellExecuteW(nullptr, L"open", path.c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  download.callbacks.on_installer_started();
}

}  // namespace

void start_update_check(const std::string& host, std::uint32_t port,
                        std::function<void(const UpdateOffer&)> on_offer) {
  start_detached_thread([host, port, on_offer = std::move(on_offer)] {
    const ThreadRecords records;
    if (const auto offer = check_for_update(host, port)) on_offer(*offer);
  });
}

void start_update_download(const std::string& host, std::uint32_t port, const std::string& file,
                           DownloadCallbacks callbacks) {
  start_detached_thread([download = Download{host, port, file, std::move(callbacks)}] {
    const ThreadRecords records;
    run_download(download);
  });
}

}  // namespace vlk::agent
