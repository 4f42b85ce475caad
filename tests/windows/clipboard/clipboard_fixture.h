// Fixture for tests of the clipboard: a window, the started clipboard watch, and an empty clipboard before
// each test.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "clipboard/payload.h"
#include "tests/windows/clipboard/clipboard_seam.h"

namespace vlk::agent {

class ClipboardTest : public testing::Test {
 protected:
  using Bytes = std::vector<std::uint8_t>;

  static void SetUpTestSuite();
  static void TearDownTestSuite();
  void SetUp() override;

  // The send callable of the watch: records a call and keeps the payload in sent_.
  static std::function<void(const unsigned char*, std::size_t)> sink();

  // Calls the function while the clipboard is open. The system calls in it are not recorded.
  static void on_clipboard(const std::function<void()>& work);
  // The following three functions put content on the clipboard, which must be open.
  static void put(UINT format, const void* bytes, std::size_t size);
  static void put_text(std::wstring_view text);
  static void put_files(const std::vector<std::wstring>& paths);

  static std::string wide_bytes(std::wstring_view text);
  // The whole block of CF_HDROP for these paths.
  static std::string drop_block(const std::vector<std::wstring>& paths);
  // The clipboard's bytes in this format; empty if the clipboard has no such content.
  static std::string held(UINT format);
  static bool holds_nothing() { return CountClipboardFormats() == 0; }

  // The folder that received files are written to.
  static std::wstring scratch();
  // Removes the scratch folder with all its files, whatever their names are.
  static void remove_scratch();
  static void write(const std::wstring& path, const std::string& bytes);
  static std::string read(const std::wstring& path);
  static Bytes payload(ClipboardKind kind, std::string_view content) { return PackClip(kind, content); }

  inline static ULONG_PTR token_ = 0;
  inline static HWND window_ = nullptr;
  inline static std::vector<Bytes> sent_;
};

}  // namespace vlk::agent
