// Puts received content on the local clipboard.
#include "clipboard/apply_win32.h"

#include <cstring>
#include <string>
#include <string_view>
#include <utility>

#include "clipboard/echo_guard.h"
#include "clipboard/opened_win32.h"
#include "clipboard/payload.h"
#include "clipboard/png_win32.h"
#include "platform/debug_log.h"
#include "platform/text.h"
#include "platform/win32/paths_win32.h"

namespace vlk::agent {
namespace {

// The folder for received files, inside the temporary folder. Never cleaned, because the clipboard refers to
// the files by path.
constexpr wchar_t kScratchFolder[] = L"VlkClip\\";

// The header before the list of paths in CF_HDROP memory. Windows documents it as DROPFILES.
struct DropHeader {
  DWORD paths_offset = sizeof(DropHeader);
  LONG x = 0, y = 0;
  BOOL is_outside = FALSE;
  BOOL is_wide = TRUE;
};
static_assert(sizeof(DropHeader) == 20);

OptionalDebugLog ClipboardDebugLog;

void apply_text(std::string_view utf8) {
  const std::wstring text = Utf8ToWide(utf8);
  const std::size_t size = (text.size() + 1) * sizeof(wchar_t);
  UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, size));
  if (!memory) return;
  std::memcpy(LockedGlobal(memory.get()).get(), text.c_str(), size);
  // If the clipboard refuses the memory, it is deliberately not freed, unlike the memory for images and
  // files.
  SetClipboardData(CF_UNICODETEXT, memory.release());
}

std::wstring make_scratch_folder() {
  std::wstring folder = temporary_folder() + kScratchFolder;
  CreateDirectoryW(folder.c_str(), nullptr);  // fails if the folder exists, which is fine
  return folder;
}

// Writes a received file to `path`. False if the file cannot be opened. A failure to write is ignored.
[[nodiscard]] bool write_file(const std::wstring& path, const ClipFile& file) {
  const HANDLE opened =
      CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return false;
  const UniqueKernelHandle handle(opened);
  DWORD written = 0;
  if (file.size != 0) WriteFile(handle.get(), file.data, static_cast<DWORD>(file.size), &written, nullptr);
  return true;
}

void publish_paths(const std::vector<std::wstring>& paths) {
  std::wstring list;
  for (const std::wstring& path : paths)
    list.append(path).push_back(L'\0');
  const DropHeader header;
  const std::size_t list_size = (list.size() + 1) * sizeof(wchar_t);  // a second zero ends the list
  UniqueGlobal memory(GlobalAlloc(GMEM_MOVEABLE, sizeof header + list_size));
  if (!memory) return;
  {
    const LockedGlobal locked(memory.get());
    std::memcpy(locked.get(), &header, sizeof header);
    std::memcpy(static_cast<char*>(locked.get()) + sizeof header, list.c_str(), list_size);
  }
  publish(CF_HDROP, std::move(memory));
}

void apply_files(const std::uint8_t* content, std::size_t length) {
  if (length < kClipCountSize) return;
  const std::wstring folder = make_scratch_folder();
  std::vector<std::wstring> paths;
  for (const ClipFile& file : ReadClipFiles(content, length)) {
    std::wstring path = folder + Utf8ToWide(file.name);
    if (write_file(path, file)) paths.push_back(std::move(path));
  }
  if (!paths.empty()) publish_paths(paths);
}

void apply_content(std::uint8_t kind, const std::uint8_t* content, std::size_t length) {
  switch (static_cast<ClipboardKind>(kind)) {
    case ClipboardKind::Text:
      return apply_text({reinterpret_cast<const char*>(content), length});
    case ClipboardKind::Image:
      return ApplyPngImage(content, length);
    case ClipboardKind::Files:
      return apply_files(content, length);
  }
}

}  // namespace

void ApplyClipboard(const std::vector<std::uint8_t>& payload) {
  if (payload.empty()) return;
  const std::uint8_t kind = payload[0];
  const std::size_t length = payload.size() - 1;
  {
    const OpenedClipboard clipboard;
    if (!clipboard) {
      ClipboardDebugLog.write("clipboard: apply kind=%u OpenClipboard FAILED err=%lu\n", unsigned{kind},
                              GetLastError());
      return;
    }
    ClipboardDebugLog.write("clipboard: apply kind=%u len=%zu OpenClipboard OK\n", unsigned{kind}, length);
    EmptyClipboard();
    apply_content(kind, payload.data() + 1, length);
  }
  // This is early enough: the notification of this change is handled after this function has returned.
  ClipboardEchoGuardUntil = EchoGuardUntil(GetTickCount());
}

}  // namespace vlk::agent
