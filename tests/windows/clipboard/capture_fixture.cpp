// Makes the folder for copied files and describes sent payloads in words.
#include "tests/windows/clipboard/capture_fixture.h"

#include <cstring>
#include <filesystem>

#include "clipboard/watch_win32.h"
#include "platform/win32/paths_win32.h"

namespace vlk::agent {
namespace {

// Describes the payload in words, in the form that update() returns.
std::string described(const std::vector<std::uint8_t>& payload) {
  const std::string content(payload.begin() + 1, payload.end());
  if (payload[0] == 1) return "text " + content;
  if (payload[0] == 2) return content.starts_with("\x89PNG\r\n\x1A\n") ? "image" : "no image";
  std::string text = "files " + std::to_string(payload[4]);
  for (const ClipFile& file : ReadClipFiles(payload.data() + 1, payload.size() - 1))
    text += ' ' + file.name + ' ' + std::to_string(file.size);
  return text;
}

}  // namespace

void CaptureTest::SetUp() {
  ClipboardTest::SetUp();
  folder_ = temporary_folder() + L"vlk-capture\\";
  std::filesystem::remove_all(folder_);
  std::filesystem::create_directory(folder_);
}

void CaptureTest::TearDown() {
  std::filesystem::remove_all(folder_);
}

std::wstring CaptureTest::file_with(const wchar_t* name, const std::string& bytes) const {
  write(folder_ + name, bytes);
  return folder_ + name;
}

std::wstring CaptureTest::file_of(const wchar_t* name, std::uint64_t size) const {
  // The file has no content on the disk. The library's resize_file() would refuse a size for which the disk
  // has no room.
  const std::wstring path = folder_ + name;
  const HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  LARGE_INTEGER end;
  end.QuadPart = static_cast<LONGLONG>(size);
  EXPECT_TRUE(SetFilePointerEx(file, end, nullptr, FILE_BEGIN) && SetEndOfFile(file)) << size;
  CloseHandle(file);
  return path;
}

std::string CaptureTest::update() {
  sent_.clear();
  OnClipboardUpdate();
  EXPECT_LE(sent_.size(), 1u);
  return sent_.empty() ? "" : described(sent_[0]);
}

std::string dib(LONG width, LONG height, WORD bits, DWORD compression,
                const std::vector<std::uint32_t>& colours, const std::string& pixels) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = bits;
  header.biCompression = compression;
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
         std::string(reinterpret_cast<const char*>(colours.data()), colours.size() * 4) + pixels;
}

std::string distinct_bytes(std::size_t size, std::uint32_t seed) {
  std::string bytes(size, '\0');
  for (std::uint32_t i = 0; i < size / sizeof i; ++i) {
    const std::uint32_t value = (i + seed) * 2654435761u;
    std::memcpy(&bytes[i * sizeof i], &value, sizeof value);
  }
  return bytes;
}

std::string two_pixels() {
  return dib(2, -1, 32, BI_RGB, {}, std::string("\x01\x02\x03\xFF\x04\x05\x06\xFF", 8));
}

}  // namespace vlk::agent
