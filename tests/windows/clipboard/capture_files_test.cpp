// Copied files that are sent: how they are read, the size limit, and files that are skipped silently.
#include <filesystem>

#include "platform/win32/handles_win32.h"
#include "support/bytes/clip_bytes.h"
#include "tests/windows/clipboard/capture_fixture.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;
using vantelink_test::number;
using vantelink_test::record;

TEST_F(CaptureTest, FilesAreReadCompletelyWhileTheClipboardIsOpen) {
  write(folder_ + L"höfn's 😀 .txt", "contents");
  on_clipboard([&] { put_files({folder_ + L"höfn's 😀 .txt", file_of(L"empty", 0)}); });
  EXPECT_EQ(update(), "files 2 höfn's 😀 .txt 8 empty 0");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 15", "file höfn's 😀 .txt 0x80000000 1 3 128", "read 8",
                                 "file empty 0x80000000 1 3 128", "close", "sink"}));
  const std::vector<ClipFile> files = ReadClipFiles(sent_[0].data() + 1, sent_[0].size() - 1);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(files[0].data), files[0].size), "contents");
}

TEST_F(CaptureTest, CopiedFolderWithoutFilesSendsNothingEvenIfTextWasCopiedToo) {
  on_clipboard([&] {
    put_files({folder_});
    put_text(L"words");
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, FoldersAndUnreadableFilesAreSkipped) {
  std::filesystem::create_directory(folder_ + L"inner");
  write(folder_ + L"inner\\below", "never walked");
  const std::wstring locked = file_of(L"locked", 1);
  const vlk::UniqueKernelHandle in_use(
      CreateFileW(locked.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  on_clipboard([&] {
    put_files({folder_ + L"inner", folder_ + L"missing", locked, folder_ + std::wstring(300, L'n'),
               L"C:\\a<b|c", file_of(L"good", 2)});
  });
  EXPECT_EQ(update(), "files 1 good 2");
}

TEST_F(CaptureTest, FilesAfterAFileThatExceedsTheLimitAreNotOpened) {
  const std::string first = distinct_bytes(40 * kMebibyte, 1);
  on_clipboard([&] {
    put_files({file_with(L"a", first), file_of(L"b", 40 * kMebibyte), file_of(L"c", 1024)});
  });
  script.calls.clear();
  EXPECT_EQ(update(), "files 1 a 41943040");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 15", "file a 0x80000000 1 3 128", "read 41943040",
                                 "file b 0x80000000 1 3 128", "close", "sink"}));
  EXPECT_TRUE(sent_.at(0) == payload(ClipboardKind::Files, number(1, 4) + record("a", first)));
}

TEST_F(CaptureTest, FilesWhoseTotalSizeIsExactlyTheLimitAreSent) {
  const std::string first = distinct_bytes(32 * kMebibyte, 1);
  const std::string second = distinct_bytes(32 * kMebibyte, 1u << 30);
  on_clipboard([&] {
    put_files({file_with(L"a", first), file_with(L"b", second), file_of(L"c", 0), file_of(L"d", 1),
               file_of(L"e", 0)});
  });
  EXPECT_EQ(update(), "files 3 a 33554432 b 33554432 c 0")
      << "e would fit, but is not opened, because d before it exceeds the limit";
  EXPECT_TRUE(sent_.at(0) == payload(ClipboardKind::Files, number(3, 4) + record("a", first) +
                                                               record("b", second) + record("c", "")));
}

TEST_F(CaptureTest, NothingIsSentIfTheFirstFileIsTooLarge) {
  on_clipboard([&] { put_files({file_of(L"a", 64 * kMebibyte + 1), file_of(L"b", 1)}); });
  EXPECT_EQ(update(), "");
  on_clipboard([&] {
    EmptyClipboard();
    put_files({file_of(L"a", 5ull << 32)});
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, FileThatCannotBeReadToItsEndIsSentWithTheBytesThatWereRead) {
  script.most_read = 5;
  on_clipboard([&] { put_files({file_of(L"a", 8), file_of(L"b", 3)}); });
  EXPECT_EQ(update(), "files 2 a 5 b 3");
  script.refuse_read = true;
  EXPECT_EQ(update(), "files 2 a 0 b 0");
}

}  // namespace
}  // namespace vlk::agent
