// Text conversion with the Windows API: one call for the size, one for the text.
#include "platform/text.h"

#include <windows.h>

namespace vlk {
namespace {

constexpr DWORD kNoFlags = 0;  // malformed input is replaced

}  // namespace

std::wstring Utf8ToWide(std::string_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int characters = MultiByteToWideChar(CP_UTF8, kNoFlags, text.data(), length, nullptr, 0);
  if (characters <= 0) return {};
  std::wstring wide(static_cast<std::size_t>(characters), L'\0');
  MultiByteToWideChar(CP_UTF8, kNoFlags, text.data(), length, wide.data(), characters);
  return wide;
}

std::string WideToUtf8(std::wstring_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int bytes = WideCharToMultiByte(CP_UTF8, kNoFlags, text.data(), length, nullptr, 0, nullptr, nullptr);
  if (bytes <= 0) return {};
  std::string utf8(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, kNoFlags, text.data(), length, utf8.data(), bytes, nullptr, nullptr);
  return utf8;
}

}  // namespace vlk
