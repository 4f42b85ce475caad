// Sends each change of the local clipboard as one message, whatever its size.
#include "clipboard/watch_win32.h"

#include <shellapi.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <functional>
#include <optional>
#include <utility>

#include "clipboard/echo_guard.h"
#include "clipboard/formats.h"
#include "clipboard/opened_win32.h"
#include "clipboard/payload.h"
#include "clipboard/png_win32.h"
#include "clipboard/watch.h"
#include "platform/text.h"
#include "platform/win32/paths_win32.h"

namespace vlk::agent {
namespace {

using Bytes = std::vector<std::uint8_t>;

static_assert(kFormatBitmap == CF_DIB && kFormatText == CF_UNICODETEXT && kFormatFiles == CF_HDROP);

std::atomic<bool> ClipboardSessionActive{false};
std::function<void(const unsigned char*, std::size_t)> ClipboardSink;

Bytes capture_text() {
  const HGLOBAL data = GetClipboardData(CF_UNICODETEXT);
  if (data == nullptr) return {};
  const LockedGlobal memory(data);
  if (memory.get() == nullptr) return {};
  return PackClip(ClipboardKind::Text, WideToUtf8(static_cast<const wchar_t*>(memory.get())));
}

Bytes capture_image() {
  const Bytes png = EncodeClipboardDibAsPng();
  if (png.empty()) return {};
  return PackClip(ClipboardKind::Image, {reinterpret_cast<const char*>(png.data()), png.size()});
}

// Adds a file to the message. Leaves out folders and files that cannot be read. False if the file is too
// large for the rest of the message.
[[nodiscard]] bool pack_file(const wchar_t* path, ClipFilePacker& packer) {
  const DWORD attributes = GetFileAttributesW(path);
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) return true;
  const HANDLE opened = CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return true;
  UniqueKernelHandle handle(opened);
  LARGE_INTEGER size = {};
  GetFileSizeEx(handle.get(), &size);
  if (!packer.fits(static_cast<std::uint64_t>(size.QuadPart))) return false;
  Bytes bytes(static_cast<std::size_t>(size.QuadPart));
  DWORD read = 0;
  if (!bytes.empty()) ReadFile(handle.get(), bytes.data(), static_cast<DWORD>(bytes.size()), &read, nullptr);
  handle.reset();
  bytes.resize(read);
  packer.add(WideToUtf8(path), bytes);
  return true;
}

Bytes capture_files() {
  const auto drop = static_cast<HDROP>(GetClipboardData(CF_HDROP));
  if (drop == nullptr) return {};
  ClipFilePacker packer;
  const UINT count = DragQueryFileW(drop, 0xFFFFFFFF, nullptr, 0);
  for (UINT i = 0; i < count; ++i) {
    std::array<wchar_t, kPathSize> path = {};
    if (DragQueryFileW(drop, i, path.data(), kPathSize) == 0) continue;
    // If a file is too large, the files after it are left out too, even if they would fit.
    if (!pack_file(path.data(), packer)) break;
  }
  return packer.payload();
}

Bytes capture() {
  const std::optional<ClipboardKind> kind =
      ChooseClipboardKind([](std::uint32_t format) { return IsClipboardFormatAvailable(format) != FALSE; });
  if (!kind) return {};
  switch (*kind) {
    case ClipboardKind::Files:
      return capture_files();
    case ClipboardKind::Text:
      return capture_text();
    case ClipboardKind::Image:
      return capture_image();
  }
  return {};
}

}  // namespace

void StartClipboardWatch(HWND window, std::function<void(const unsigned char* data, std::size_t size)> sink) {
  ClipboardWindow = window;
  ClipboardSink = std::move(sink);
  AddClipboardFormatListener(window);
}

void SetClipboardSessionActive(bool active) {
  ClipboardSessionActive.exchange(active);
}

void OnClipboardUpdate() {
  if (!ClipboardSessionActive || !ClipboardSink) return;
  if (EchoGuardHolds(GetTickCount(), ClipboardEchoGuardUntil)) return;
  Bytes payload;
  {
    const OpenedClipboard clipboard;
    if (!clipboard) return;
    payload = capture();
  }
  if (!payload.empty()) ClipboardSink(payload.data(), payload.size());
}

}  // namespace vlk::agent
